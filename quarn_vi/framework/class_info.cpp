#include "framework/class_info.hpp"

namespace objsys::factory {

ObjsysFactoryClassInfo::~ObjsysFactoryClassInfo() = default;

const char* ObjsysFactoryClassInfo::getName() const {
    return name_.c_str();
}

const char* ObjsysFactoryClassInfo::getDescription() const {
    return description_.c_str();
}

const char* ObjsysFactoryClassInfo::getDetailedDescription() const {
    return getDescription();
}

bool ObjsysFactoryClassInfo::hasNativeInstances() const {
    return true;
}

} // namespace objsys::factory
