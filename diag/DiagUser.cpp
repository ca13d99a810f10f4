#include "diag/DiagUser.h"

namespace NQORVA20 {

DiagUser::DiagUser() = default;
DiagUser::~DiagUser() = default;
void DiagUser::init() {}

} // namespace NQORVA20
