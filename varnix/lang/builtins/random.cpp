// Random numbers: one generator per process, the 64-bit Mersenne Twister, which starts from the
// same seed each time, so that a script gives the same numbers on every run and every machine
// until it calls seed. The numbers are made from its bits by the code below, not by the standard
// library's distributions, whose results differ between libraries.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"

#include <cmath>
#include <random>

namespace varnix::builtins {
namespace {

/// The generator lives for the process: its state is what makes the numbers a sequence.
std::mt19937_64& generator() {
    static std::mt19937_64 instance; // seeded with 5489, the standard's default
    return instance;
}

/// Uniform in [0, 1): 53 random bits.
[[nodiscard]] double uniform() {
    return static_cast<double>(generator()() >> 11) * 0x1p-53;
}

/// Standard normal, by Box and Muller; one number per pair of uniform ones.
[[nodiscard]] double normal() {
    const double u = 1 - uniform(); // not 0
    const double v = uniform();
    return std::sqrt(-2 * std::log(u)) * std::cos(6.283185307179586 * v);
}

/// Uniform from 0 to range - 1, without bias.
[[nodiscard]] std::uint64_t below(std::uint64_t range) {
    const std::uint64_t limit = ~std::uint64_t{0} - ~std::uint64_t{0} % range;
    std::uint64_t bits = generator()();
    while (bits >= limit)
        bits = generator()();
    return bits % range;
}

template <class F>
void fill(BuiltinCall& call, std::size_t first, F&& next) {
    const Arguments in(call);
    const auto [rows, columns] = in.size(first, in.count());
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, rows, columns));
    for (std::size_t i = 0; i < rows * columns; ++i)
        elements<double>(result.get())[i] = next();
    call.give(Value::fromArray(result.release()));
}

void rand(BuiltinCall& call) {
    fill(call, 0, uniform);
}
void randn(BuiltinCall& call) {
    fill(call, 0, normal);
}

void randi(BuiltinCall& call) {
    const Arguments in(call);
    const Value limits = in.doubles(0);
    const numeric::View view(limits);
    if (view.count() != 1 && view.count() != 2)
        in.bad(0, "must be the greatest number or [least, greatest]");
    const double least = view.count() == 2 ? view.at(0) : 1;
    const double greatest = view.at(view.count() - 1);
    if (!(least <= greatest) || least != std::trunc(least) || greatest != std::trunc(greatest) ||
        std::fabs(least) > 0x1p53 || std::fabs(greatest) > 0x1p53)
        in.bad(0, "must hold whole numbers, the least one first");
    const auto range = static_cast<std::uint64_t>(greatest - least) + 1;
    fill(call, 1, [&] { return least + static_cast<double>(below(range)); });
}

void randperm(BuiltinCall& call) {
    const auto n = static_cast<std::size_t>(Arguments(call).whole(0, 0, std::int64_t{1} << 30));
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, 1, n));
    double* out = elements<double>(result.get());
    for (std::size_t i = 0; i < n; ++i) {
        const std::size_t j = below(i + 1);
        out[i] = out[j];
        out[j] = static_cast<double>(i + 1);
    }
    call.give(Value::fromArray(result.release()));
}

void seed(BuiltinCall& call) {
    const Arguments in(call);
    generator().seed(in.has(0)
                         ? static_cast<std::uint64_t>(in.whole(0, 0, std::int64_t{1} << 53))
                         : (std::uint64_t{std::random_device()()} << 32) ^ std::random_device()());
}

constexpr Builtin table[] = {
    {"rand", "rand(m, n)",
     "Random numbers from 0 up to but without 1, sized as by zeros. Every start of the program "
     "gives the same numbers; see seed.\nExample: rand() < 1 gives true",
     0, 2, 1, rand},
    {"randn", "randn(m, n)",
     "Random numbers of the standard normal distribution, sized as by zeros.\n"
     "Example: size(randn(2, 3)) gives [2, 3]",
     0, 2, 1, randn},
    {"randi", "randi(greatest, m, n) or randi([least, greatest], m, n)",
     "Random whole numbers from 1 (or the least) to the greatest, sized as by zeros.\n"
     "Example: randi([5, 5]) gives 5",
     1, 3, 1, randi},
    {"randperm", "randperm(n)",
     "The numbers 1 to n in random order.\nExample: sort(randperm(3)) gives [1, 2, 3]", 1, 1, 1,
     randperm},
    {"seed", "seed(n)",
     "Starts the random numbers anew from a whole number; without one, from the machine's source "
     "of "
     "chance.",
     0, 1, 0, seed},
};

} // namespace

Table random() {
    return table;
}

} // namespace varnix::builtins
