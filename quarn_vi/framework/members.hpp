// Types taken apart from pointers to member functions.
#pragma once

#include <type_traits>

namespace objsys::factory::impl {

/// What a member function belongs to, takes and gives, as plain value types.
template <class Pointer>
struct MemberTraits;

template <class R, class C, class... A>
struct MemberTraits<R (C::*)(A...)> {
    using Class = C;
    using Result = std::remove_cvref_t<R>;
    template <template <class...> class List>
    using Arguments = List<std::remove_cvref_t<A>...>;
};

template <class R, class C, class... A>
struct MemberTraits<R (C::*)(A...) const> : MemberTraits<R (C::*)(A...)> {};
template <class R, class C, class... A>
struct MemberTraits<R (C::*)(A...) noexcept> : MemberTraits<R (C::*)(A...)> {};
template <class R, class C, class... A>
struct MemberTraits<R (C::*)(A...) const noexcept> : MemberTraits<R (C::*)(A...)> {};

/// The same for a static member function.
template <class R, class... A>
struct MemberTraits<R (*)(A...)> {
    using Result = std::remove_cvref_t<R>;
    template <template <class...> class List>
    using Arguments = List<std::remove_cvref_t<A>...>;
};

template <class R, class... A>
struct MemberTraits<R (*)(A...) noexcept> : MemberTraits<R (*)(A...)> {};

template <class... T>
struct TypeList {};

template <class... T>
struct OnlyType;
template <class T>
struct OnlyType<T> {
    using Type = T;
};

/// The only argument of a setter.
template <class Pointer>
using SetterArgument = typename MemberTraits<Pointer>::template Arguments<OnlyType>::Type;

} // namespace objsys::factory::impl
