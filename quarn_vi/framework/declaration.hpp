// How a descriptor's defineClass is written: one line per member, in order.
//
//     void CosTimer::defineClass(objsys::COSClassDefinition* definition) {
//         objsys::factory::ClassDeclaration<TimerVI> declare(definition, this);
//         declare.superclass("varnix.mixin.Heterogeneous");
//         declare.constructor<std::string>();
//         declare.readOnly<&TimerVI::name>("name");
//         declare.method<&TimerVI::start>("start");
//     }
//
// Data types follow from the member functions' own types (see conversions.hpp). Everything made
// here belongs to the host once it is handed over; where there is no memory for an entry, null is
// handed over, and the host refuses the definition.
#pragma once

#include "framework/accessors.hpp"
#include "framework/class_info.hpp"
#include "framework/method.hpp"
#include "framework/property.hpp"

#include <objsys/class_definition.hpp>

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace objsys::factory {

/// Declares the class whose native objects are of type `Native`.
template <impl::Controller Native>
class ClassDeclaration {
public:
    explicit ClassDeclaration(COSClassDefinition* definition) : definition_(*definition) {}
    /// The same for a descriptor that says what becomes of the native objects: those that are
    /// deleted with their instances are built behind them.
    template <class T, int D>
    ClassDeclaration(COSClassDefinition* definition, const HandleClassInfo<T, D>*)
        : definition_(*definition),
          nativeBytes_(D == 1 && impl::mayLieBehindInstance<Native> ? sizeof(Native) : 0) {}

    void superclass(const char* fullName) {
        definition_.addSuperclass(COSNameID(fullName), 1, 0, 1);
    }

    /// A constructor that takes `Args` and hands them to the native class's own constructor.
    template <class... Args>
    void constructor() {
        COSMethodSignature signature = impl::Invoker::createSignature(
            String(), impl::scriptName<Native>(), nullptr, {impl::HostType<Args>::name()...});
        signature.nativeBytes = nativeBytes_;
        definition_.addMethod(new impl::ObjsysConstructor(
            definition_.getClassName(), std::move(signature), &impl::construct<Native, Args...>));
    }

    template <auto Get, auto Set>
    void property(const char* name, PropertyAttributes attributes = {}) {
        using T = impl::SetterArgument<decltype(Set)>;
        using Class = typename impl::MemberTraits<decltype(Set)>::Class;
        std::unique_ptr<impl::Setter> setter(new (std::nothrow) impl::ClassSetter<T, Class, Set>);
        std::unique_ptr<impl::Getter> getter(makeGetter<Get>());
        addProperty(name, attributes, std::move(getter), std::move(setter));
    }

    template <auto Get>
    void readOnly(const char* name, PropertyAttributes attributes = {}) {
        addProperty(name, attributes, std::unique_ptr<impl::Getter>(makeGetter<Get>()));
    }

    template <auto Member>
    void method(const char* name, MethodAttributes attributes = {}) {
        using Traits = impl::MemberTraits<decltype(Member)>;
        addMethod<decltype(Member)>(name, attributes, Member,
                                    typename Traits::template Arguments<impl::TypeList>{});
    }

    /// A method that is called on a whole row of objects: `Function` is a static member function
    /// whose first argument is the vector of native objects.
    template <auto Function>
    void vectorMethod(const char* name, MethodAttributes attributes = {}) {
        using Traits = impl::MemberTraits<decltype(Function)>;
        addVectorMethod<decltype(Function)>(name, attributes, Function,
                                            typename Traits::template Arguments<impl::TypeList>{});
    }

    /// A method that is called on the class: `Function` is a static member function.
    template <auto Function>
    void staticMethod(const char* name, MethodAttributes attributes = {}) {
        using Traits = impl::MemberTraits<decltype(Function)>;
        addStaticMethod<decltype(Function)>(name, attributes.add(MethodAttributes::Static()),
                                            Function,
                                            typename Traits::template Arguments<impl::TypeList>{});
    }

private:
    template <auto Get>
    static impl::Getter* makeGetter() {
        using Traits = impl::MemberTraits<decltype(Get)>;
        return new (std::nothrow)
            impl::ClassGetter<typename Traits::Result, typename Traits::Class, Get>;
    }

    /// Hands over a property with its getter and, if it can be written, its setter.
    template <class... Accessors>
    void addProperty(const char* name, PropertyAttributes attributes,
                     std::unique_ptr<Accessors>... accessors) {
        impl::PropertyImpl* property = nullptr;
        if ((accessors && ...))
            property = new (std::nothrow) impl::PropertyImpl(name, accessors.get()..., attributes);
        if (property)
            ((void)accessors.release(), ...);
        definition_.addProperty(property);
    }

    template <class Member, class... Args>
    void addMethod(const char* name, MethodAttributes attributes, Member member,
                   impl::TypeList<Args...>) {
        using Traits = impl::MemberTraits<Member>;
        const COSNameID self = impl::scriptName<typename Traits::Class>();
        definition_.addMethod(new impl::MethodImpl(
            name, attributes, String(),
            impl::Invoker::createSignature(String(),
                                           impl::HostType<typename Traits::Result>::name(), &self,
                                           {impl::HostType<Args>::name()...}),
            &impl::invokeMember<Member, Args...>, member));
    }

    template <class Function, class Self, class... Args>
    void addVectorMethod(const char* name, MethodAttributes attributes, Function function,
                         impl::TypeList<Self, Args...>) {
        using Traits = impl::MemberTraits<Function>;
        const COSNameID self = impl::HostType<Self>::name();
        // The row is the function's first input, as the arguments of a static method are.
        definition_.addMethod(new impl::MethodImpl(
            name, attributes, String(),
            impl::Invoker::createSignature(String(),
                                           impl::HostType<typename Traits::Result>::name(), &self,
                                           {impl::HostType<Args>::name()...}),
            &impl::invokeStatic<Function, Self, Args...>, function));
    }

    template <class Function, class... Args>
    void addStaticMethod(const char* name, MethodAttributes attributes, Function function,
                         impl::TypeList<Args...>) {
        using Traits = impl::MemberTraits<Function>;
        definition_.addMethod(new impl::MethodImpl(
            name, attributes, String(),
            impl::Invoker::createSignature(String(),
                                           impl::HostType<typename Traits::Result>::name(), nullptr,
                                           {impl::HostType<Args>::name()...}),
            &impl::invokeStatic<Function, Args...>, function));
    }

    COSClassDefinition& definition_;
    std::size_t nativeBytes_ = 0; ///< see COSMethodSignature
};

} // namespace objsys::factory
