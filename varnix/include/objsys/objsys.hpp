// Everything of the class object system that a module uses.
#pragma once

#include <objsys/class.hpp>
#include <objsys/class_definition.hpp>
#include <objsys/class_info.hpp>
#include <objsys/enumeration.hpp>
#include <objsys/error.hpp>
#include <objsys/factory/accessors.hpp>
#include <objsys/factory/attributes.hpp>
#include <objsys/factory/binding_registry.hpp>
#include <objsys/factory/errors.hpp>
#include <objsys/factory/string.hpp>
#include <objsys/factory/wrappable.hpp>
#include <objsys/interface.hpp>
#include <objsys/method_info.hpp>
#include <objsys/name_id.hpp>
#include <objsys/object_array.hpp>
#include <objsys/package.hpp>
#include <objsys/package_info.hpp>
#include <objsys/property_info.hpp>
#include <objsys/value.hpp>
