// Our side: the host's class object system, reached from C++ and from the script language.
//
// The class that it measures is declared with the module's own framework in varnix_statistics.cpp,
// like any controller of the module. From C++, properties and methods are resolved once, as the
// host's own inline caches do.
#include "lang/interpreter.hpp"
#include "subject.hpp"
#include "value/value.hpp"
#include "varnix_statistics.hpp"

#include <hv/array.hpp>
#include <objsys/objsys.hpp>

#include <array>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {
namespace {

using objsys::COSClass;
using objsys::COSInterface;
using objsys::COSMethod;
using objsys::COSNameID;
using objsys::COSProperty;
using objsys::COSValue;

/// An owned reference to an array of the host, or none.
class ArrayRef {
public:
    ArrayRef() = default;
    /// Takes one reference over.
    explicit ArrayRef(hvArray* array) : array_(array) {}
    ArrayRef(const ArrayRef& other) : array_(hvShareArray(other.array_)) {}
    ArrayRef(ArrayRef&& other) noexcept : array_(std::exchange(other.array_, nullptr)) {}
    ArrayRef& operator=(ArrayRef other) noexcept {
        std::swap(array_, other.array_);
        return *this;
    }
    ~ArrayRef() { hvDestroyArray(array_); }

    hvArray* get() const { return array_; }

private:
    hvArray* array_ = nullptr;
};

/// What an operation works on, in this order so that the handles go first.
struct HostObject {
    std::shared_ptr<ScriptStatistics> native;
    ArrayRef handle;
    ArrayRef held; ///< keeps the handles of its live objects alive

    COSInterface* instance() const { return COSInterface::ofHandle(handle.get()); }
};

/// The loops as a programmer of the language writes them, and a check of what the class does with
/// right and wrong values. Each function is also kept in a variable, where the program finds it.
constexpr const char* scriptSource = R"vx(
function empty_turn(s, n)
  for i = 1:n
  end
end
function get_bool(s, n)
  for i = 1:n
    x = s.Enabled;
  end
end
function set_bool(s, n)
  for i = 1:n
    s.Enabled = true;
  end
end
function get_int32(s, n)
  for i = 1:n
    x = s.Threshold;
  end
end
function set_int32(s, n)
  for i = 1:n
    s.Threshold = 4711;
  end
end
function get_uint64(s, n)
  for i = 1:n
    x = s.Count;
  end
end
function set_uint64(s, n)
  for i = 1:n
    s.Count = 123456789;
  end
end
function get_string(s, n)
  for i = 1:n
    x = s.OutputFormat;
  end
end
function set_string(s, n)
  for i = 1:n
    s.OutputFormat = "QNEL text";
  end
end
function get_strings(s, n)
  for i = 1:n
    x = s.Fields;
  end
end
function get_object(s, n)
  for i = 1:n
    x = s.Child;
  end
end
function void_call(s, n)
  for i = 1:n
    s.reset();
  end
end
function string_call(s, n)
  for i = 1:n
    x = s.hello();
  end
end
function construct(s, n)
  for i = 1:n
    x = internal.bench.OwnedStatistics();
  end
end
function get_objects(s, n)
  for i = 1:n
    x = s.Violations;
  end
end

function verify(s)
  assert(s.Enabled, "Enabled");
  s.Enabled = false;
  assert(!s.Enabled, "Enabled again");
  s.Threshold = -7;
  assert(s.Threshold == -7, "Threshold");
  refused = false;
  try
    s.Threshold = 1e12;
  catch err
    refused = isequal(err.identifier, "varnix:wrongType");
  end
  assert(refused, "a Threshold beyond 32 bits");
  s.Count = 18446744073709551615u64;
  assert(s.Count == 18446744073709551615u64, "Count");
  s.OutputFormat = "dot";
  assert(isequal(s.OutputFormat, "dot"), "OutputFormat");
  refused = false;
  try
    s.OutputFormat = 1;
  catch err
    refused = isequal(err.identifier, "varnix:wrongType");
  end
  assert(refused, "a number as OutputFormat");
  f = s.Fields;
  assert(length(f) == 10, "Fields");
  assert(isequal(f{5}, "severity"), "a field");
  assert(s.Child == s.Child, "Child");
  v = s.Violations;
  assert(length(v) == 3, "Violations");
  assert(v[2] == s.Violations[2], "a violation's handle");
  assert(!(v[1] == v[2]), "two violations");
  s.reset();
  assert(isequal(s.hello(), "(-: hello :-)"), "hello");
  made = internal.bench.OwnedStatistics();
  assert(!made.Enabled, "a new object");
end
)vx";

class Varnix : public Subject {
public:
    Varnix();
    std::string name() const override { return "varnix"; }
    void verify() override;
    Loop fromNative(Operation operation) override;
    Loop fromScript(Operation operation) override;

private:
    /// A loop that reads a property and hands the value to `use`, which releases it.
    template <class Use>
    Loop get(Operation operation, const char* name, Use use);
    /// A loop that assigns a scalar.
    Loop setScalar(Operation operation, const char* name, COSValue value);
    /// A loop that assigns one and the same text of the host.
    Loop setText(Operation operation, const char* name, std::string_view text);
    /// A loop that makes a text of the host and assigns it.
    Loop setNewText(Operation operation, const char* name, std::string_view text);
    /// A loop that calls a method and hands its result to `use`, which releases it.
    template <class Use>
    Loop call(Operation operation, const char* name, Use use);

    HostObject wrap(std::shared_ptr<ScriptStatistics> native) const;
    HostObject objectFor(Operation operation) const;
    const COSProperty* property(const char* name) const;
    const COSMethod* method(const char* name) const;
    varnix::Value function(const char* name) const;

    COSClass* class_;
    COSClass* ownedClass_;
    std::shared_ptr<varnix::Interpreter> interpreter_;
};

Varnix::Varnix() : interpreter_(std::make_shared<varnix::Interpreter>()) {
    publishStatistics();
    class_ = &COSClass::get(COSNameID(statisticsClass));
    ownedClass_ = &COSClass::get(COSNameID(ownedStatisticsClass));
    std::string source = scriptSource;
    for (const OperationName& entry : operations) {
        if (entry.function == nullptr) {
            continue;
        }
        source += std::string(entry.function) + "_loop = fn " + entry.function + ";\n";
    }
    source += "verify_loop = fn verify;\n";
    interpreter_->runCode(source, "bench");
}

HostObject Varnix::wrap(std::shared_ptr<ScriptStatistics> native) const {
    HostObject object;
    object.native = std::move(native);
    object.handle = ArrayRef(objsys::factory::basic::BindingRegistry::announce(
        object.native.get(), COSNameID(statisticsClass)));
    return object;
}

HostObject Varnix::objectFor(Operation operation) const {
    HostObject object = wrap(makeScriptStatistics(liveObjects(operation)));
    const char* const kept = liveObjects(operation) != 0 ? "Violations" : "Child";
    object.held = ArrayRef(property(kept)->get(object.instance()).asArray());
    return object;
}

const COSProperty* Varnix::property(const char* name) const {
    const COSProperty* const found = class_->findProperty(COSNameID(name));
    require(found != nullptr, *this, "a property is missing");
    return found;
}

const COSMethod* Varnix::method(const char* name) const {
    const COSMethod* const found = class_->findMethod(COSNameID(name));
    require(found != nullptr, *this, "a method is missing");
    return found;
}

varnix::Value Varnix::function(const char* name) const {
    const std::optional<varnix::Value> found = interpreter_->global(std::string(name) + "_loop");
    require(found.has_value(), *this, "a script function is missing");
    return *found;
}

void Varnix::verify() {
    const HostObject object = wrap(makeScriptStatistics(3));
    const std::array arguments = {varnix::Value::fromArray(hvShareArray(object.handle.get()))};
    try {
        interpreter_->call(function("verify"), arguments, 0);
    } catch (const objsys::COSError& error) {
        throw std::runtime_error(name() + ": " + varnix::formatError(error));
    }
    require(!object.native->enabled() && object.native->threshold() == -7 &&
                object.native->outputFormat() == "dot" && object.native->resets() == 1,
            *this, "a value that a script set does not arrive");
}

Loop Varnix::fromScript(Operation operation) {
    return [interpreter = interpreter_, object = objectFor(operation),
            loop = function(scriptFunction(operation))](std::size_t count) {
        const std::array arguments = {varnix::Value::fromArray(hvShareArray(object.handle.get())),
                                      varnix::Value::ofDouble(static_cast<double>(count))};
        interpreter->call(loop, arguments, 0);
    };
}

template <class Use>
Loop Varnix::get(Operation operation, const char* name, Use use) {
    return repeat([object = objectFor(operation), found = property(name), use] {
        use(found->get(object.instance()));
    });
}

Loop Varnix::setScalar(Operation operation, const char* name, COSValue value) {
    return repeat([object = objectFor(operation), found = property(name), value] {
        found->set(object.instance(), value);
    });
}

Loop Varnix::setText(Operation operation, const char* name, std::string_view text) {
    return repeat([object = objectFor(operation), found = property(name),
                   value = ArrayRef(hvCreateStringN(text.data(), text.size())),
                   type = COSNameID("char")] {
        found->set(object.instance(), COSValue::ofArray(value.get(), type));
    });
}

Loop Varnix::setNewText(Operation operation, const char* name, std::string_view text) {
    return repeat(
        [object = objectFor(operation), found = property(name), type = COSNameID("char"), text] {
            const ArrayRef value(hvCreateStringN(text.data(), text.size()));
            found->set(object.instance(), COSValue::ofArray(value.get(), type));
        });
}

template <class Use>
Loop Varnix::call(Operation operation, const char* name, Use use) {
    return repeat([object = objectFor(operation), found = method(name),
                   self = COSNameID(statisticsClass), use] {
        const COSValue input = COSValue::ofArray(object.handle.get(), self);
        use(found->call(&input));
    });
}

Loop Varnix::fromNative(Operation operation) {
    const auto useText = [](const COSValue& value) {
        hvArray* const text = value.asArray();
        keep(hvGetData(text));
        keep(text->count());
        hvDestroyArray(text);
    };
    const auto useArray = [](const COSValue& value) {
        hvArray* const array = value.asArray();
        keep(array->count());
        hvDestroyArray(array);
    };
    const auto nothing = [](const COSValue&) {};

    switch (operation) {
    case Operation::getBool:
        return get(operation, "Enabled", [](const COSValue& value) { keep(value.asLogical()); });
    case Operation::setBool:
        return setScalar(operation, "Enabled",
                         COSValue::ofLogical(true, COSNameID("logical scalar")));
    case Operation::getInt32:
        return get(operation, "Threshold", [](const COSValue& value) { keep(value.asInt32()); });
    case Operation::setInt32:
        return setScalar(operation, "Threshold",
                         COSValue::ofInt32(thresholdValue, COSNameID("int32 scalar")));
    case Operation::getUint64:
        return get(operation, "Count", [](const COSValue& value) { keep(value.asUInt64()); });
    case Operation::setUint64:
        return setScalar(operation, "Count",
                         COSValue::ofUInt64(countValue, COSNameID("uint64 scalar")));
    case Operation::getString:
        return get(operation, "OutputFormat", useText);
    case Operation::setString:
        return setText(operation, "OutputFormat", formatValue);
    case Operation::setNewString:
        return setNewText(operation, "OutputFormat", formatValue);
    case Operation::getStrings:
        return get(operation, "Fields", useArray);
    case Operation::getObject:
        return get(operation, "Child", [](const COSValue& value) {
            hvArray* const handle = value.asArray();
            keep(omGetArrayElement(handle, 0));
            hvDestroyArray(handle);
        });
    case Operation::voidCall:
        return call(operation, "reset", nothing);
    case Operation::stringCall:
        return call(operation, "hello", useText);
    case Operation::construct:
        return repeat([owned = ownedClass_] { hvDestroyArray(owned->construct({})); });
    case Operation::getObjects1000:
    case Operation::getObjects100000:
        return get(operation, "Violations", useArray);
    case Operation::emptyLoop:
        return {};
    }
    return {};
}

} // namespace

std::unique_ptr<Subject> makeVarnix() {
    return std::make_unique<Varnix>();
}

} // namespace bench
