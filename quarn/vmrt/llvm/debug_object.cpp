// See debug_object.hpp.
#include "vmrt/llvm/debug_object.hpp"

#include <cstring>
#include <elf.h>

namespace QN::VMRT {

std::string debugObjectOf(std::string_view object,
                          const std::map<std::string, std::uint64_t>& sections) {
    std::string copy(object);
    Elf64_Ehdr file;
    std::memcpy(&file, copy.data(), sizeof(file));
    const auto header = [&](std::size_t number) {
        return copy.data() + file.e_shoff + number * sizeof(Elf64_Shdr);
    };
    Elf64_Shdr names;
    std::memcpy(&names, header(file.e_shstrndx), sizeof(names));
    for (std::size_t i = 1; i < file.e_shnum; ++i) {
        Elf64_Shdr section;
        std::memcpy(&section, header(i), sizeof(section));
        const char* const name = copy.data() + names.sh_offset + section.sh_name;
        if (const auto found = sections.find(name); found != sections.end()) {
            section.sh_addr = found->second;
            std::memcpy(header(i), &section, sizeof(section));
        }
    }
    return copy;
}

} // namespace QN::VMRT
