// The ServiceFactory of a test family: one of each of its service classes, in the order named,
// every one testing the family's published elements. A service class is constructed from
// (installDate, systemName, const Elements&); the elements must outlive the services.
#ifndef ZORQ_PROVIDERS_COMMON_ELEMENTSERVICEFACTORY_H
#define ZORQ_PROVIDERS_COMMON_ELEMENTSERVICEFACTORY_H

#include "factory/ServiceFactory.h"

#include <cstddef>
#include <memory>
#include <string>

namespace NQORVA20::providers {

template <class ElementSet, class... Services>
class ElementServiceFactory final : public ServiceFactory {
public:
    using Elements = ElementSet;

    explicit ElementServiceFactory(const Elements& elements) : elements_(elements) {}

    DiagService** makeServices(std::string dateTime, std::string systemName,
                               unsigned int& count) override {
        // Held until the table is made, so that a constructor that throws leaks nothing.
        std::unique_ptr<DiagService> made[] = {
            std::make_unique<Services>(dateTime, systemName, elements_)...};
        auto** table = new DiagService*[sizeof...(Services)];
        for (std::size_t i = 0; i < sizeof...(Services); ++i)
            table[i] = made[i].release();
        count = sizeof...(Services);
        return table;
    }

private:
    const Elements& elements_;
};

} // namespace NQORVA20::providers

#endif
