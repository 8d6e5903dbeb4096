// LLVM's own just-in-time compiler as its examples set it up, with the transforms of a level: what
// the runtime of compiled functions is compared with. Takes the LLVM IR that the runtime made.
#pragma once

#include <memory>
#include <string>

namespace bench {

class PlainLljit {
public:
    /// `ir` is what to compile, with the function `name` in it. At level 0 LLVM's transforms are
    /// left out, at 2 the default pipeline runs.
    PlainLljit(const std::string& ir, std::string name, int level);
    PlainLljit(const PlainLljit&) = delete;
    PlainLljit& operator=(const PlainLljit&) = delete;
    ~PlainLljit();

    /// Compiles the IR once more in the compiler that is there, and frees the code again.
    void compileNext();
    /// The same in a compiler that is made for it.
    void compileFirst();

    /// The first compilation of this process, with all that LLVM sets up for it; reading `ir` is
    /// not counted. Gives nanoseconds of processor time; throws std::logic_error in a process that
    /// has compiled something.
    static double compileFirstOfProcess(const std::string& ir, const std::string& name, int level);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace bench
