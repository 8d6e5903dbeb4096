// A sink for class definitions that writes down every call, in order.
#pragma once

#include <objsys/class_definition.hpp>

#include <memory>
#include <string>
#include <vector>

namespace sample {

using objsys::COSNameID;

/// Writes down what is declared and owns it, as the host does.
class Recorder final : public objsys::COSClassDefinition {
public:
    explicit Recorder(std::string className) : className_(std::move(className)) {}

    const char* getClassName() const override { return className_.c_str(); }
    COSNameID getFullClassName() const override { return COSNameID("anywhere." + className_); }
    void addSuperclass(COSNameID name, int visibility, int position, int handle) override {
        record("superclass " + name.str() + " " + std::to_string(visibility) + " " +
               std::to_string(position) + " " + std::to_string(handle));
    }
    void addMethod(objsys::COSMethodInfo* method) override {
        methods.emplace_back(method);
        record((method->isConstructor() ? "constructor " : "method ") + method->getName().str());
    }
    void addProperty(objsys::COSPropertyInfo* property) override {
        properties.emplace_back(property);
        record("property " + property->getName().str());
    }

    std::vector<std::string> calls;
    std::vector<std::unique_ptr<objsys::COSMethodInfo>> methods;
    std::vector<std::unique_ptr<objsys::COSPropertyInfo>> properties;

private:
    void record(std::string call) { calls.push_back(std::move(call)); }

    std::string className_;
};

} // namespace sample
