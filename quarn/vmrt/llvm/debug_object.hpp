// An object file as debuggers want it. No LLVM here.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace QN::VMRT {

/// A copy of an ELF object in which the sections named have these addresses.
[[nodiscard]] std::string debugObjectOf(std::string_view object,
                                        const std::map<std::string, std::uint64_t>& sections);

} // namespace QN::VMRT
