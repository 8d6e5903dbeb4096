// The typed value that crosses the door between the host and a module: a 64-bit payload and the
// name of its data type.
#pragma once

#include <objsys/name_id.hpp>

#include <bit>
#include <cstdint>

struct hvArray;

namespace objsys {

/// A payload plus its data-type name. Trivially copyable and 16 bytes long, so that it is passed
/// in registers; it owns nothing by itself. Where a payload is an hvArray*, the text of the
/// function that hands the value over says who releases it. Throughout the host: a value that a
/// getter or method returns carries one reference, which the receiver releases; a value passed to
/// a setter, method or constructor stays the caller's.
class COSValue {
public:
    /// A "void" value.
    COSValue() : payload_(0), type_(COSNameID::voidType()) {}
    COSValue(std::uint64_t payload, COSNameID type) : payload_(payload), type_(type) {}

    static COSValue ofLogical(bool v, COSNameID type) { return {std::uint64_t{v}, type}; }
    static COSValue ofInt32(std::int32_t v, COSNameID type) {
        return {static_cast<std::uint64_t>(static_cast<std::int64_t>(v)), type};
    }
    static COSValue ofUInt32(std::uint32_t v, COSNameID type) { return {std::uint64_t{v}, type}; }
    static COSValue ofInt64(std::int64_t v, COSNameID type) {
        return {static_cast<std::uint64_t>(v), type};
    }
    static COSValue ofUInt64(std::uint64_t v, COSNameID type) { return {v, type}; }
    static COSValue ofDouble(double v, COSNameID type) {
        return {std::bit_cast<std::uint64_t>(v), type};
    }
    static COSValue ofArray(hvArray* v, COSNameID type) {
        return {reinterpret_cast<std::uintptr_t>(v), type};
    }

    [[nodiscard]] std::uint64_t payload() const { return payload_; }
    [[nodiscard]] COSNameID type() const { return type_; }

    [[nodiscard]] bool asLogical() const { return payload_ != 0; }
    [[nodiscard]] std::int32_t asInt32() const { return static_cast<std::int32_t>(payload_); }
    [[nodiscard]] std::uint32_t asUInt32() const { return static_cast<std::uint32_t>(payload_); }
    [[nodiscard]] std::int64_t asInt64() const { return static_cast<std::int64_t>(payload_); }
    [[nodiscard]] std::uint64_t asUInt64() const { return payload_; }
    [[nodiscard]] double asDouble() const { return std::bit_cast<double>(payload_); }
    [[nodiscard]] hvArray* asArray() const {
        return reinterpret_cast<hvArray*>(static_cast<std::uintptr_t>(payload_));
    }

private:
    std::uint64_t payload_;
    COSNameID type_;
};

static_assert(sizeof(COSValue) <= 24);

} // namespace objsys
