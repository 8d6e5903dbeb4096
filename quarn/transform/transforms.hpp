// Declares the functions of all transforms, from the rows of the registry.
#pragma once

namespace QN {

class Function;
class Scope;

namespace transforms {

#define QN_FUNCTION_TRANSFORM(name, function, summary) bool function(Function&);
#define QN_SCOPE_TRANSFORM(name, function, summary) bool function(Scope&);
#include "transform/transforms.def"
#undef QN_FUNCTION_TRANSFORM
#undef QN_SCOPE_TRANSFORM

} // namespace transforms

} // namespace QN
