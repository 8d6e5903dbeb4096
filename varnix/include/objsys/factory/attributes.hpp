// Attributes of properties and methods.
#pragma once

#include <cstdint>

namespace objsys::factory {

/// Sixteen bits, each reported by one query of COSPropertyInfo (bits 0 to 14).
class PropertyAttributes {
public:
    constexpr PropertyAttributes() = default;
    constexpr explicit PropertyAttributes(std::uint16_t bits) : bits_(bits) {}
    [[nodiscard]] constexpr std::uint16_t bits() const { return bits_; }
    [[nodiscard]] constexpr bool bit(unsigned index) const { return ((bits_ >> index) & 1u) != 0; }
    friend constexpr bool operator==(PropertyAttributes, PropertyAttributes) = default;

private:
    std::uint16_t bits_ = 0;
};

/// A set of method attributes.
class MethodAttributes {
public:
    constexpr MethodAttributes() = default;

    /// Called on the class, not on an object.
    static constexpr MethodAttributes Static() { return MethodAttributes(1); }
    /// `m(x)` calls the method whenever x is an object or an object array of the class, even where
    /// a built-in function has that name.
    static constexpr MethodAttributes ForceMembership() { return MethodAttributes(2); }

    constexpr MethodAttributes& add(MethodAttributes other) {
        bits_ = static_cast<std::uint16_t>(bits_ | other.bits_);
        return *this;
    }
    constexpr MethodAttributes& remove(MethodAttributes other) {
        bits_ = static_cast<std::uint16_t>(bits_ & ~other.bits_);
        return *this;
    }
    [[nodiscard]] constexpr bool has(MethodAttributes other) const {
        return (bits_ & other.bits_) == other.bits_;
    }
    friend constexpr bool operator==(MethodAttributes, MethodAttributes) = default;

private:
    constexpr explicit MethodAttributes(std::uint16_t bits) : bits_(bits) {}

    std::uint16_t bits_ = 0;
};

} // namespace objsys::factory
