#include "instance/InstanceImpl.h"

#include <iostream>

namespace NQORVA20 {

InstanceImpl::InstanceImpl() : className_("") {}

InstanceImpl::InstanceImpl(std::string className) : className_(std::move(className)) {}

InstanceImpl::InstanceImpl(const InstanceImpl& other) {
    *this = other;
}

InstanceImpl& InstanceImpl::operator=(const InstanceImpl& other) {
    if (this != &other)
        properties_ = other.properties_;
    return *this;
}

InstanceImpl::~InstanceImpl() = default;

CMPIStatus InstanceImpl::invokeMethod(const CMPIBroker*, const CMPIContext*, const CMPIResult*,
                                      const CMPIObjectPath*, std::string, const CMPIArgs*,
                                      CMPIArgs*) {
    CMPIStatus status = {CMPI_RC_ERR_METHOD_NOT_FOUND, nullptr};
    return status;
}

void InstanceImpl::setClassName(std::string className) {
    className_ = std::move(className);
}

std::string InstanceImpl::getClassName() {
    return className_;
}

void InstanceImpl::setObjectPath(std::string objectPath) {
    objectPath_ = std::move(objectPath);
}

std::string InstanceImpl::getObjectPath() {
    return objectPath_;
}

std::string& InstanceImpl::get(const std::string& name) {
    return properties_[name];
}

std::string& InstanceImpl::operator[](const std::string& name) {
    return properties_[name];
}

InstanceImpl::iterator InstanceImpl::find(const std::string& name) {
    return properties_.find(name);
}

InstanceImpl::iterator InstanceImpl::begin() {
    return properties_.begin();
}

InstanceImpl::iterator InstanceImpl::end() {
    return properties_.end();
}

void InstanceImpl::print() {
    for (const auto& [name, value] : properties_)
        std::cout << name << "\t\t" << value << std::endl;
    std::cout << std::endl;
}

} // namespace NQORVA20
