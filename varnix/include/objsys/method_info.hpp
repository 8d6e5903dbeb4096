// COSMethodInfo: one method, static method or constructor of a script class.
#pragma once

#include <objsys/factory/attributes.hpp>
#include <objsys/name_id.hpp>
#include <objsys/value.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace objsys {

/// What a method takes and gives, as data-type names.
struct COSMethodSignature {
    std::string text;                 ///< a remark for a person, usually empty
    COSNameID result;                 ///< "void": no result
    bool hasSelf = false;             ///< the first input is the object
    COSNameID self;                   ///< class name, or "C vector"; meaningless without hasSelf
    std::vector<COSNameID> arguments; ///< the inputs after the object
    /// Of a constructor whose native objects may lie behind their instances: their size in bytes.
    /// 0: the constructor allocates.
    std::size_t nativeBytes = 0;
};

/// Described by the module, owned by the host once added to a class definition.
class COSMethodInfo {
public:
    COSMethodInfo() = default;
    COSMethodInfo(const COSMethodInfo&) = delete;
    COSMethodInfo& operator=(const COSMethodInfo&) = delete;
    virtual ~COSMethodInfo();

    virtual COSNameID getName() const = 0;
    virtual factory::MethodAttributes getAttributes() const = 0;
    virtual const char* getDescription() const = 0;
    virtual const COSMethodSignature& getSignature() const = 0;
    /// True for a constructor: output 0 comes in holding the handle of the new instance, with its
    /// class's full name as data type.
    virtual bool isConstructor() const = 0;

    /// Calls the method. `inputs` has one entry for the object, if the signature has one, and one
    /// for each argument, already converted by the host to the declared data types; they stay the
    /// caller's. `outputs` has room for at least one value, which the caller owns afterwards.
    /// `requested` is the number of outputs asked for. Returns the number of outputs given, at
    /// least 1 (a "void" method leaves output 0 as it was). Errors pass as COSError.
    virtual int invoke(int requested, COSValue* outputs, const COSValue* inputs) const = 0;

    /// The class allocator; null when there is no memory.
    static void* operator new(std::size_t bytes) noexcept;
    static void operator delete(void* memory) noexcept;
};

} // namespace objsys
