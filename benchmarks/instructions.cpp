// Running under callgrind and reading its profiles; see instructions.hpp.
#include "instructions.hpp"

#include "process.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string_view>
#include <unistd.h>
#include <unordered_map>
#include <valgrind/callgrind.h>

namespace bench {
namespace {

constexpr char labelSeparator = '|';
constexpr std::size_t warmUp = 3;

/// Functions that are a memory allocator's door, by the start of their name as callgrind writes it.
/// What they call counts as theirs.
constexpr std::array<std::string_view, 24> allocators = {
    "malloc",
    "calloc",
    "realloc",
    "free",
    "operator new",
    "operator delete",
    "posix_memalign",
    "aligned_alloc",
    "PyObject_Malloc",
    "PyObject_Calloc",
    "PyObject_Realloc",
    "PyObject_Free",
    "PyMem_Malloc",
    "PyMem_Calloc",
    "PyMem_Realloc",
    "PyMem_Free",
    "PyMem_RawMalloc",
    "PyMem_RawFree",
    "varnix::heap::detail::takeSlow",
    "objsys::factory::full::Wrappable::operator new",
    "objsys::factory::full::Wrappable::operator delete",
    "hvMalloc",
    "hvFree",
    "hvFreeEx",
};

/// The source of the host's allocator, whose short functions the compiler puts into their callers;
/// line information tells their instructions apart.
constexpr std::string_view allocatorSource = "value/small_heap.hpp";

bool isAllocator(std::string_view function) {
    return std::any_of(allocators.begin(), allocators.end(), [&](std::string_view name) {
        if (!function.starts_with(name)) {
            return false;
        }
        // A longer name that only begins alike is another function.
        const std::string_view rest = function.substr(name.size());
        return rest.empty() || rest.front() == '(' || rest.front() == '[' || rest.front() == '\'' ||
               rest.front() == '@';
    });
}

/// Resolves callgrind's name compression: "(12) name" defines 12, "(12)" uses it.
class Names {
public:
    const std::string& resolve(std::string_view text) {
        if (text.empty() || text.front() != '(') {
            return names_.emplace(std::string(text), std::string(text)).first->second;
        }
        const std::size_t end = text.find(')');
        const std::string key(text.substr(0, end + 1));
        if (end + 2 < text.size()) {
            names_.insert_or_assign(key, std::string(text.substr(end + 2)));
        }
        return names_[key];
    }

private:
    std::unordered_map<std::string, std::string> names_;
};

/// The last number of a cost line "POSITION COST".
double lastNumber(std::string_view line) {
    const std::size_t blank = line.find_last_of(' ');
    if (blank == std::string_view::npos) {
        return 0; // a position alone: no cost
    }
    const std::string_view digits = line.substr(blank + 1);
    unsigned long long value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return static_cast<double>(value);
}

/// A call from one function to another and all that happened in it.
struct Call {
    std::string caller;
    std::string callee;
    double inclusive = 0;
};

/// What lines of an allocator's own source took that the compiler put into other functions.
struct InlinedCost {
    std::string function;
    double self = 0;
};

/// What the calls of allocators take that come from outside of them. An allocator may call another
/// one through helpers of its own, which must not count twice; such a helper is a function that
/// only allocators and such helpers call.
double allocatorCost(const std::vector<Call>& calls, const std::vector<InlinedCost>& inlined) {
    std::unordered_map<std::string, bool>
        inside; // assumed for all that are called, until disproved
    for (const Call& call : calls) {
        inside.try_emplace(call.caller, isAllocator(call.caller));
        inside.insert_or_assign(call.callee, true);
    }
    for (bool changed = true; changed;) {
        changed = false;
        for (const Call& call : calls) {
            bool& callee = inside[call.callee];
            if (callee && !isAllocator(call.callee) && !inside[call.caller]) {
                callee = false;
                changed = true;
            }
        }
    }
    double cost = 0;
    for (const Call& call : calls) {
        if (isAllocator(call.callee) && !inside[call.caller]) {
            cost += call.inclusive;
        }
    }
    for (const InlinedCost& part : inlined) {
        if (!inside[part.function] && !isAllocator(part.function)) {
            cost += part.self;
        }
    }
    return cost;
}

/// Whether a line says what a source line of the current function took: "+3 17", "* 4", "120 9".
bool isCostLine(std::string_view line) {
    return !line.empty() && std::string_view("+-*0123456789").find(line.front()) != line.npos;
}

std::string labelOf(std::string_view subject, std::string_view operation, std::size_t count) {
    std::string label(subject);
    label += labelSeparator;
    label += operation;
    label += labelSeparator;
    label += std::to_string(count);
    return label;
}

/// A folder under the system's one for temporary files, removed with all that is in it.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string path =
            (std::filesystem::temp_directory_path() / "bench-callgrind-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no folder for callgrind's profiles can be made: " + path);
        }
        path_ = path;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace

ProfileCost readProfile(const std::filesystem::path& file) {
    std::ifstream in(file);
    if (!in) {
        throw std::runtime_error("cannot read the profile " + file.string());
    }
    constexpr std::string_view triggered = "desc: Trigger: Client Request: ";
    ProfileCost cost;
    Names functions;
    Names files;
    std::vector<Call> calls;
    std::vector<InlinedCost> inlined;
    bool inAllocatorSource = false;
    Call call;
    bool nextIsCall = false; // the next cost line is what a call took
    bool known = false;
    std::string text;
    while (std::getline(in, text)) {
        const std::string_view line = text;
        if (line.starts_with("events: ")) {
            known = line == "events: Ir";
        } else if (line.starts_with(triggered)) {
            cost.label = line.substr(triggered.size());
        } else if (line.starts_with("fn=")) {
            call.caller = functions.resolve(line.substr(3));
        } else if (line.starts_with("fl=") || line.starts_with("fi=") || line.starts_with("fe=")) {
            inAllocatorSource = files.resolve(line.substr(3)).ends_with(allocatorSource);
        } else if (line.starts_with("cfi=") || line.starts_with("cfl=")) {
            files.resolve(line.substr(4));
        } else if (line.starts_with("cfn=")) {
            call.callee = functions.resolve(line.substr(4));
        } else if (line.starts_with("calls=")) {
            nextIsCall = true;
        } else if (line.starts_with("summary: ") || line.starts_with("totals: ")) {
            cost.total = lastNumber(line);
        } else if (nextIsCall) {
            call.inclusive = lastNumber(line);
            calls.push_back(call);
            nextIsCall = false;
        } else if (inAllocatorSource && isCostLine(line)) {
            inlined.push_back({call.caller, lastNumber(line)});
        }
    }
    if (!known) {
        throw std::runtime_error("not a profile of instruction counts: " + file.string());
    }
    cost.allocator = allocatorCost(calls, inlined);
    return cost;
}

void runUnderCallgrind(const GroupEntry& entry) {
    const Group group = entry.build();
    CALLGRIND_START_INSTRUMENTATION;
    for (const Row& row : group.rows) {
        for (std::size_t i = 0; i < row.makers.size(); ++i) {
            const Loop loop = row.makers[i] ? row.makers[i]() : Loop();
            if (!loop) {
                continue;
            }
            loop(warmUp);
            for (const std::size_t count :
                 {row.instructionRepetitions, 2 * row.instructionRepetitions}) {
                const std::string label = labelOf(group.subjects[i], row.operation, count);
                CALLGRIND_ZERO_STATS;
                loop(count);
                CALLGRIND_DUMP_STATS_AT(label.c_str());
            }
        }
    }
    CALLGRIND_STOP_INSTRUMENTATION;
}

void runOne(const GroupEntry& entry, const OperationId& id, std::size_t count) {
    const Group group = entry.build();
    const auto subject = std::find(group.subjects.begin(), group.subjects.end(), id.subject);
    const auto row = std::find_if(group.rows.begin(), group.rows.end(),
                                  [&](const Row& each) { return each.operation == id.operation; });
    if (subject == group.subjects.end() || row == group.rows.end()) {
        throw std::runtime_error("no such operation: " + id.group + "/" + id.subject + "/" +
                                 id.operation);
    }
    const Loop loop = row->makers[static_cast<std::size_t>(subject - group.subjects.begin())]();
    if (!loop) {
        throw std::runtime_error(id.subject + " has no operation '" + id.operation + "'");
    }
    loop(warmUp);
    CALLGRIND_START_INSTRUMENTATION;
    loop(count);
    CALLGRIND_STOP_INSTRUMENTATION;
}

Table countInstructions(const GroupEntry& entry, const std::filesystem::path& program) {
    const TemporaryFolder folder;
    // Symbols are not looked up inside what is counted; and memset and memcpy do not use repeated
    // string instructions, of which callgrind counts every repetition.
    setenv("LD_BIND_NOW", "1", 1);
    setenv("GLIBC_TUNABLES",
           "glibc.cpu.x86_rep_movsb_threshold=1000000000:"
           "glibc.cpu.x86_rep_stosb_threshold=1000000000",
           1);
    const int status = runProgram({"valgrind", "--tool=callgrind", "--quiet", "--instr-atstart=no",
                                   "--callgrind-out-file=" + (folder.path() / "profile").string(),
                                   program.string(), "--under-callgrind", entry.name});
    if (status != 0) {
        throw std::runtime_error("the run under valgrind failed with status " +
                                 std::to_string(status) +
                                 (status == 127 ? " (is valgrind installed?)" : ""));
    }

    // The two profiles of each operation, by label.
    std::map<std::string, ProfileCost> profiles;
    for (const auto& file : std::filesystem::directory_iterator(folder.path())) {
        ProfileCost cost = readProfile(file.path());
        if (!cost.label.empty()) {
            profiles.insert_or_assign(cost.label, cost);
        }
    }

    const Group group = entry.build();
    Table table;
    table.title = entry.name + ": " + entry.title;
    table.legend = "instructions per operation outside the memory allocator (and inside it); "
                   "ratio: the subject's instructions to the first column's, outside";
    table.subjects = group.subjects;
    table.notes = group.notes;
    table.firstKey = "instructions";
    table.secondKey = "allocator_instructions";
    for (const Row& row : group.rows) {
        TableRow result;
        result.operation = row.operation;
        for (const std::string& subject : group.subjects) {
            const std::size_t once = row.instructionRepetitions;
            const auto few = profiles.find(labelOf(subject, row.operation, once));
            const auto many = profiles.find(labelOf(subject, row.operation, 2 * once));
            if (few == profiles.end() || many == profiles.end()) {
                result.cells.emplace_back();
                continue;
            }
            const double repetitions = static_cast<double>(once) * row.unitsOf(result.cells.size());
            const double total = (many->second.total - few->second.total) / repetitions;
            const double allocator = (many->second.allocator - few->second.allocator) / repetitions;
            result.cells.emplace_back(Cell{total - allocator, allocator});
        }
        table.rows.push_back(std::move(result));
    }
    return table;
}

} // namespace bench
