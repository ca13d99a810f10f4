// The function tables of the query types (select expression, select condition, sub-condition,
// predicate). The host evaluates no queries: it never makes such objects, and every function
// of these tables answers CMPI_RC_ERR_NOT_SUPPORTED (CMPI_RC_ERR_INVALID_HANDLE for a null
// object).
#ifndef DIAGHOST_BROKER_QUERYTABLES_H
#define DIAGHOST_BROKER_QUERYTABLES_H

#include <cmpift.h>

namespace diaghost {

class QueryTables {
public:
    static CMPISelectExpFT* selectExp();
    static CMPISelectCondFT* selectCond();
    static CMPISubCondFT* subCond();
    static CMPIPredicateFT* predicate();
};

} // namespace diaghost

#endif
