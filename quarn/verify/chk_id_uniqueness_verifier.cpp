// Reading of the catalogue; see the header for its form.
#include <qn/chk_id_uniqueness_verifier.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <unordered_map>

namespace QN {

std::vector<std::string> ChkIdUniquenessVerifier::allCheckIds(const std::string& root) {
    const std::string path = root + (root.empty() || root.back() == '/' ? "" : "/") + cataloguePath;
    const auto complain = [&path](const std::string& what) {
        throw CatalogueError("The catalogue of checks " + path + " " + what + ".");
    };
    errno = 0;
    std::ifstream file(path);
    if (!file) {
        complain(std::string("cannot be read: ") + std::strerror(errno != 0 ? errno : EIO));
    }
    constexpr const char* blanks = " \t\r";
    std::vector<std::string> ids;
    std::unordered_map<std::string, std::size_t> lineOf;
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        const std::size_t start = line.find_first_not_of(blanks);
        if (start == std::string::npos || line[start] == '#') {
            continue;
        }
        const std::size_t end = line.find_first_of(blanks, start);
        if (end == std::string::npos || line.find_first_not_of(blanks, end) == std::string::npos) {
            complain("does not say what '" + line.substr(start, end - start) + "' on line " +
                     std::to_string(number) + " checks");
        }
        std::string id = line.substr(start, end - start);
        const auto [known, isNew] = lineOf.emplace(id, number);
        if (!isNew) {
            complain("has the id '" + id + "' twice, on lines " + std::to_string(known->second) +
                     " and " + std::to_string(number));
        }
        ids.push_back(std::move(id));
    }
    if (file.bad()) {
        complain("cannot be read to its end");
    }
    return ids;
}

} // namespace QN
