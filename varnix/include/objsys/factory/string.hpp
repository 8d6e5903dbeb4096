// The text type of the factory framework.
#pragma once

#include <string>

namespace objsys::factory {

using String = std::string;

} // namespace objsys::factory
