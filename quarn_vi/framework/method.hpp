// Descriptions of methods and constructors, and the functions that the host calls through them.
#pragma once

#include "framework/conversions.hpp"
#include "framework/members.hpp"
#include "framework/native_object.hpp"

#include <objsys/class.hpp>
#include <objsys/factory/errors.hpp>
#include <objsys/factory/string.hpp>
#include <objsys/method_info.hpp>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <new>
#include <utility>

namespace objsys::factory {

/// Name, attributes, text and signature, shared by methods and constructors.
class ObjsysMethod : public COSMethodInfo {
public:
    ObjsysMethod(const String& name, MethodAttributes attributes, const String& text,
                 COSMethodSignature signature)
        : name_(name), attributes_(attributes), text_(text), signature_(std::move(signature)) {}
    ~ObjsysMethod() override;

    COSNameID getName() const override { return name_; }
    MethodAttributes getAttributes() const override { return attributes_; }
    const char* getDescription() const override { return text_.c_str(); }
    const COSMethodSignature& getSignature() const override { return signature_; }

private:
    COSNameID name_;
    MethodAttributes attributes_;
    String text_;
    COSMethodSignature signature_;
};

namespace impl {

/// Makes signatures and holds the functions that take a call apart.
class Invoker {
public:
    /// `self` is null for a static method and for a constructor.
    static COSMethodSignature createSignature(const String& text, COSNameID result,
                                              const COSNameID* self,
                                              std::initializer_list<COSNameID> arguments);

    /// How many outputs a call gives that was asked for `requested`.
    static int outputCount(int requested) { return requested + (requested == 0 ? 1 : 0); }
};

/// A method, static or not: it stores the function that the host's call goes to and the member
/// function that this one calls.
class MethodImpl final : public ObjsysMethod {
public:
    using InvokeFunction = int (*)(const MethodImpl& method, int requested, COSValue* outputs,
                                   const COSValue* inputs);

    template <class Member>
    MethodImpl(const String& name, MethodAttributes attributes, const String& text,
               COSMethodSignature signature, InvokeFunction invokeFunction, Member function)
        : ObjsysMethod(name, attributes, text, std::move(signature)), invoke_(invokeFunction) {
        static_assert(sizeof(Member) <= sizeof member_);
        ::new (static_cast<void*>(member_.data())) Member(function);
    }

    bool isConstructor() const override { return false; }
    int invoke(int requested, COSValue* outputs, const COSValue* inputs) const override {
        return invoke_(*this, requested, outputs, inputs);
    }

    /// The stored member function; `Member` is the type it was stored with.
    template <class Member>
    Member member() const {
        return *std::launder(reinterpret_cast<const Member*>(member_.data()));
    }

private:
    InvokeFunction invoke_;
    alignas(void*) std::array<std::byte, sizeof(void*) * 2> member_{};
};

/// The invoke function of an instance method: self from the first input, then the arguments.
template <class Member, class... Args>
int invokeMember(const MethodImpl& method, int requested, COSValue* outputs,
                 const COSValue* inputs) {
    using Traits = MemberTraits<Member>;
    using Class = typename Traits::Class;
    using Result = typename Traits::Result;
    // One cast per member function type: a method is called on objects of one class.
    static const NativeObjectCast<Class> find;
    const COSMethodSignature& signature = method.getSignature();
    Class* const self = validateSelfPointer(find(selfInterface(inputs), signature.self));
    const auto member = method.member<Member>();
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        if constexpr (std::is_void_v<Result>)
            (self->*member)(HostType<Args>::unpack(inputs[I + 1])...);
        else
            outputs[0] = HostType<Result>::pack(
                (self->*member)(HostType<Args>::unpack(inputs[I + 1])...), signature.result);
    }
    (std::index_sequence_for<Args...>{});
    return Invoker::outputCount(requested);
}

/// The invoke function of a static method, and of a method whose first input is a row of objects.
template <class Function, class... Args>
int invokeStatic(const MethodImpl& method, int requested, COSValue* outputs,
                 [[maybe_unused]] const COSValue* inputs) {
    using Result = typename MemberTraits<Function>::Result;
    const auto function = method.member<Function>();
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        if constexpr (std::is_void_v<Result>)
            function(HostType<Args>::unpack(inputs[I])...);
        else
            outputs[0] = HostType<Result>::pack(function(HostType<Args>::unpack(inputs[I])...),
                                                method.getSignature().result);
    }
    (std::index_sequence_for<Args...>{});
    return Invoker::outputCount(requested);
}

/// A constructor: it stores the class's construct function.
class ObjsysConstructor final : public ObjsysMethod {
public:
    /// `outputs` element 0 comes in holding the handle of the new instance. Returns the number of
    /// outputs.
    using ConstructFunction = int (*)(const ObjsysConstructor& constructor, int requested,
                                      COSValue* outputs, const COSValue* inputs);

    ObjsysConstructor(const String& className, COSMethodSignature signature,
                      ConstructFunction function)
        : ObjsysMethod(className, MethodAttributes(), String(), std::move(signature)),
          construct_(function) {}

    bool isConstructor() const override { return true; }
    int invoke(int requested, COSValue* outputs, const COSValue* inputs) const override {
        return construct_(*this, requested, outputs, inputs);
    }

private:
    ConstructFunction construct_;
};

/// Whether objects of class `Class` may lie behind their instances: when they are deleted, the host
/// has to learn of it, so the class must not give back memory in a way of its own.
template <Controller Class>
inline constexpr bool mayLieBehindInstance = [] {
    using Delete = void (*)(void*) noexcept;
    if constexpr (alignof(Class) > __STDCPP_DEFAULT_NEW_ALIGNMENT__)
        return false;
    else if constexpr (requires { static_cast<Delete>(&Class::operator delete); })
        return static_cast<Delete>(&Class::operator delete) ==
               static_cast<Delete>(&full::Wrappable::operator delete);
    else
        return false;
}();

/// Builds the native object in memory that the host reserved behind the instance; takes it back,
/// and leaves the memory, when it cannot be bound.
template <Controller Class, class... Args>
inline void constructIn(void* storage, COSInterface* instance,
                        [[maybe_unused]] const COSValue* inputs) {
    struct Destroy {
        void operator()(Class* object) const { object->~Class(); }
    };
    const auto build = [&]<std::size_t... I>(std::index_sequence<I...>) {
        if constexpr (sizeof...(Args) == 0)
            return ::new (storage) Class; // not Class(), which would clear the whole object first
        else
            return ::new (storage) Class(HostType<Args>::unpack(inputs[I])...);
    };
    std::unique_ptr<Class, Destroy> object(build(std::index_sequence_for<Args...>{}));
    basic::BindingRegistry::announceForConstructor(
        object.get(), instance->getClass()->getFullName(), instance->handle(), true);
    instance->takeNativeStorage();
    (void)object.release(); // its class decides when it goes: HandleClassInfo::destroyInstance
}

/// Builds the native object in memory of its own.
template <Controller Class, class... Args>
[[gnu::noinline]] void constructApart(COSInterface* instance,
                                      [[maybe_unused]] const COSValue* inputs) {
    const auto build = [&]<std::size_t... I>(std::index_sequence<I...>) {
        if constexpr (sizeof...(Args) == 0)
            return new Class;
        else
            return new Class(HostType<Args>::unpack(inputs[I])...);
    };
    std::unique_ptr<Class> object(build(std::index_sequence_for<Args...>{}));
    basic::BindingRegistry::announceForConstructor(
        object.get(), instance->getClass()->getFullName(), instance->handle(), true);
    (void)object.release();
}

/// The construct function of class `Class` for a constructor that takes `Args`.
template <Controller Class, class... Args>
int construct(const ObjsysConstructor&, int requested, COSValue* outputs, const COSValue* inputs) {
    COSInterface* const instance = cosiGetArrayElement(outputs[0].asArray(), 0);
    if (void* const storage = instance->getNativeStorage(outputs[0].type()))
        constructIn<Class, Args...>(storage, instance, inputs);
    else
        constructApart<Class, Args...>(instance, inputs);
    return Invoker::outputCount(requested);
}

} // namespace impl
} // namespace objsys::factory
