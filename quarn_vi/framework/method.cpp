#include "framework/method.hpp"

namespace objsys::factory {

ObjsysMethod::~ObjsysMethod() = default;

namespace impl {

COSMethodSignature Invoker::createSignature(const String& text, COSNameID result,
                                            const COSNameID* self,
                                            std::initializer_list<COSNameID> arguments) {
    COSMethodSignature signature;
    signature.text = text;
    signature.result = result;
    if (self) {
        signature.hasSelf = true;
        signature.self = *self;
    }
    signature.arguments = arguments;
    return signature;
}

} // namespace impl
} // namespace objsys::factory
