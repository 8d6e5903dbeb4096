// COSClass: a script class as the host keeps it, and the host's own way into its members.
//
// Resolve a property or method by name once, keep the pointer (it lives as long as the class), and
// use it for every access: that is what the script machine's inline caches do. A class that is
// withdrawn with its module keeps its COSClass object, without members to call: its instances are
// invalid and it is no longer found by name.
#pragma once

#include <objsys/class_info.hpp>
#include <objsys/detail/instance_pool.hpp>
#include <objsys/interface.hpp>
#include <objsys/method_info.hpp>
#include <objsys/property_info.hpp>
#include <objsys/value.hpp>

#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

namespace objsys {

class COSClass;
class COSPackage;

namespace detail {
/// Raises "varnix:invalidHandle" for an instance whose native object is gone.
[[noreturn]] void raiseInvalidHandle(const COSInterface* instance);
/// Raises "varnix:notConstructible" for an instance that its constructor left unbound.
[[noreturn, gnu::cold]] void raiseNoObject(COSInterface* instance);
/// Rises whenever classes are withdrawn. Who keeps pointers to members of a class that it reached
/// by name, without an instance in hand, checks that this has not changed.
extern std::uint64_t classGeneration;
} // namespace detail

/// One property of one class, inherited or its own: everything an access needs in one place.
class COSProperty {
public:
    /// Reads the property; arrays in the result carry a reference for the caller. Raises
    /// "varnix:invalidHandle" when the instance is no longer valid.
    [[nodiscard]] COSValue get(COSInterface* instance) const {
        if (!instance->isValid())
            detail::raiseInvalidHandle(instance);
        return getter->getValue(instance);
    }
    /// Converts the value to the declared data type and assigns it; the value stays the caller's.
    /// Raises "varnix:readOnlyProperty", "varnix:wrongType", "varnix:invalidHandle", or what the
    /// setter raises.
    void set(COSInterface* instance, const COSValue& value) const {
        if (instance->isValid() && value.type() == dataType &&
            (plain == Plain::Scalar || (plain == Plain::Text && isTextRow(value.asArray()))))
            [[likely]]
            setter->setValue(instance, value);
        else
            setConverted(instance, value);
    }

    COSNameID name;
    COSNameID dataType;
    factory::impl::Getter* getter = nullptr;
    factory::impl::Setter* setter = nullptr; ///< null: read-only
    const COSPropertyInfo* info = nullptr;
    const COSClass* declaringClass = nullptr;
    /// What goes to the setter as it is.
    enum class Plain : std::uint8_t {
        Nothing, ///< read-only, or a type whose values need a look
        Scalar,  ///< a value of the very same data type
        Text,    ///< the same, once the array was seen to be a text row
    };
    Plain plain = Plain::Nothing;

private:
    static bool isTextRow(const hvArray* array) {
        // Compilers that see a scalar's payload here take it for an array's address and warn,
        // although the data type keeps the two apart: they are not to see it.
        asm("" : "+r"(array));
        return hvGetClassID(array) == hvCHAR_CLASS && (array->rows == 1 || array->count() == 0);
    }
    void setConverted(COSInterface* instance, const COSValue& value) const;
};

/// One method of one class, inherited or its own.
class COSMethod {
public:
    [[nodiscard]] bool isStatic() const {
        return info->getAttributes().has(factory::MethodAttributes::Static());
    }
    /// Calls the method with inputs that have the declared types already: first the object's
    /// handle (unless static), then the arguments. Returns the result, whose array, if it is one,
    /// carries a reference for the caller; "void" when there is none.
    [[nodiscard]] COSValue call(const COSValue* inputs) const {
        COSValue output;
        info->invoke(1, &output, inputs);
        return output;
    }
    /// Converts the arguments and calls the method on `self`, an object array (null for a static
    /// method). Raises "varnix:tooManyInputs", "varnix:notEnoughInputs", "varnix:wrongType",
    /// "varnix:invalidHandle", or what the method raises.
    [[nodiscard]] COSValue callConverted(hvArray* self, std::span<const COSValue> arguments) const;

    COSNameID name;
    const COSMethodInfo* info = nullptr;
    const COSMethodSignature* signature = nullptr;
    const COSClass* declaringClass = nullptr;
};

class COSClass {
public:
    COSClass(const COSClass&) = delete;
    COSClass& operator=(const COSClass&) = delete;
    ~COSClass();

    /// The class of that full name, or null.
    static COSClass* find(COSNameID fullName) { return fullName.entry()->registeredClass; }
    /// The class of that full name; raises "varnix:undefined" when there is none.
    static COSClass& get(COSNameID fullName);

    [[nodiscard]] COSNameID getFullName() const { return fullName_; }
    [[nodiscard]] const std::string& getName() const { return name_; }
    [[nodiscard]] COSPackage* getPackage() const { return package_; }
    [[nodiscard]] const COSClassInfo& info() const { return *info_; }
    [[nodiscard]] COSClassInfo& info() { return *info_; }

    // The functions below define the class first where that has not happened; they raise what
    // its definition raises.

    /// Declared superclasses, in order.
    [[nodiscard]] const std::vector<COSClass*>& superclasses();
    /// All properties and all methods without constructors: inherited ones first, then in order of
    /// declaration.
    [[nodiscard]] const std::vector<COSProperty>& properties();
    [[nodiscard]] const std::vector<COSMethod>& methods();
    /// Constructors in order of declaration; none: scripts cannot make objects of the class.
    [[nodiscard]] const std::vector<const COSMethodInfo*>& constructors();
    /// The constructor without arguments; null when there is none or when the class is abstract.
    [[nodiscard]] const COSMethodInfo* plainConstructor() {
        ensureDefined();
        return plainConstructor_;
    }
    /// By name, or null. The pointer lives as long as the class.
    [[nodiscard]] const COSProperty* findProperty(COSNameID name);
    [[nodiscard]] const COSMethod* findMethod(COSNameID name);
    /// Whether this class is `other` or is derived from it.
    [[nodiscard]] bool isA(const COSClass* other);

    /// Makes an instance through the constructor that takes that many arguments; returns its
    /// handle, of which the caller gets a reference. The arguments stay the caller's. Raises
    /// "varnix:notConstructible", "varnix:tooManyInputs", "varnix:notEnoughInputs",
    /// "varnix:wrongType", or what the constructor raises; nothing is left behind then.
    [[nodiscard]] hvArray* construct(std::span<const COSValue> arguments) {
        // Without arguments there are no conversions, so no copies either.
        if (arguments.empty() && plainConstructor_ != nullptr) [[likely]]
            return constructWith(*plainConstructor_, nullptr);
        return constructConverted(arguments);
    }
    /// The same with one of the class's constructors and inputs that have the types that it
    /// declares.
    [[nodiscard]] hvArray* constructWith(const COSMethodInfo& constructor, const COSValue* inputs) {
        COSInterface* const instance = instances_.takeForConstruction();
        COSValue output = COSValue::ofArray(instance->handle(), fullName_);
        try {
            constructor.invoke(1, &output, inputs);
            if (!instance->isValid()) [[unlikely]]
                detail::raiseNoObject(instance);
        } catch (...) {
            hvDestroyArray(instance->handle()); // and what was left unbound is given up
            throw;
        }
        return instance->handle();
    }

private:
    friend class COSInterface;
    friend class COSPackage;
    friend class PackageTree;
    friend class InstanceAccess;
    friend class DefinitionBuilder;

    COSClass(COSClassInfo* info, COSPackage* package);
    void ensureDefined() {
        if (state_ != State::Defined)
            define();
    }
    void define();
    hvArray* constructConverted(std::span<const COSValue> arguments);
    /// Ends all instances, releases the descriptor and the members, and leaves the bare name.
    void withdraw() noexcept;

    enum class State { Declared, Defining, Defined, Withdrawn };
    State state_ = State::Declared;
    std::unique_ptr<COSClassInfo> info_;
    COSPackage* package_;
    std::string name_;
    COSNameID fullName_;
    std::vector<COSClass*> superclasses_;
    std::vector<std::unique_ptr<COSPropertyInfo>> ownProperties_;
    std::vector<std::unique_ptr<COSMethodInfo>> ownMethods_;
    std::vector<const COSMethodInfo*> constructors_;
    /// The constructor without arguments of a class that is not abstract, or null.
    const COSMethodInfo* plainConstructor_ = nullptr;
    std::vector<COSProperty> properties_;
    std::vector<COSMethod> methods_;
    std::unordered_map<COSNameID, std::size_t> propertyIndex_;
    std::unordered_map<COSNameID, std::size_t> methodIndex_;
    detail::InstancePool instances_{this};
};

} // namespace objsys
