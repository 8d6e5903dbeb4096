// The newer of LLVM's linkers of code in memory.
#include "vmrt/llvm/debug_object.hpp"
#include "vmrt/llvm/linker.hpp"
#include "vmrt/llvm/runtime.hpp"

#include <llvm/ExecutionEngine/JITLink/ELF_x86_64.h>
#include <llvm/ExecutionEngine/JITLink/JITLink.h>
#include <llvm/Support/MemoryBuffer.h>
#include <map>
#include <stdexcept>

namespace QN::VMRT {
namespace {

namespace jitlink = llvm::jitlink;

/// Lays all segments of a graph into one piece.
class PieceManager : public jitlink::JITLinkMemoryManager {
public:
    explicit PieceManager(Slabs& slabs) : slabs_(slabs) {}
    PieceManager(const PieceManager&) = delete;
    PieceManager& operator=(const PieceManager&) = delete;
    ~PieceManager() override {
        if (piece_.writable != nullptr) {
            slabs_.giveBack(piece_);
        }
    }

    void allocate(const jitlink::JITLinkDylib*, jitlink::LinkGraph& graph,
                  OnAllocatedFunction done) override {
        jitlink::BasicLayout layout(graph);
        std::size_t bytes = 0;
        for (const auto& [group, segment] : layout.segments()) {
            bytes = llvm::alignTo(bytes, segment.Alignment) + segment.ContentSize +
                    segment.ZeroFillSize;
        }
        piece_ = slabs_.take(bytes + 64); // a segment may ask for more than a piece's alignment
        std::size_t used = 0;
        for (auto& [group, segment] : layout.segments()) {
            const auto base = reinterpret_cast<std::uintptr_t>(piece_.executable);
            used = llvm::alignTo(base + used, segment.Alignment) - base;
            segment.WorkingMem = piece_.writable + used;
            segment.Addr = llvm::orc::ExecutorAddr::fromPtr(piece_.executable + used);
            used += segment.ContentSize + segment.ZeroFillSize;
            std::memset(segment.WorkingMem + segment.ContentSize, 0, segment.ZeroFillSize);
        }
        if (used > piece_.bytes) {
            done(llvm::createStringError("the sections do not fit into their piece"));
            return;
        }
        if (llvm::Error problem = layout.apply()) {
            done(std::move(problem));
            return;
        }
        done(std::make_unique<InFlight>());
    }
    void deallocate(std::vector<FinalizedAlloc> allocations, OnDeallocatedFunction done) override {
        for (FinalizedAlloc& allocation : allocations) {
            allocation.release();
        }
        done(llvm::Error::success());
    }
    CodePiece release() { return std::exchange(piece_, {}); }

private:
    /// What is written is in its place already.
    struct InFlight : InFlightAlloc {
        void abandon(OnAbandonedFunction done) override { done(llvm::Error::success()); }
        void finalize(OnFinalizedFunction done) override {
            done(FinalizedAlloc(llvm::orc::ExecutorAddr(1)));
        }
    };

    Slabs& slabs_;
    CodePiece piece_;
};

class Context : public jitlink::JITLinkContext {
public:
    Context(PieceManager& memory, const std::string& entry, bool soft, std::string& problem,
            const char*& address, std::map<std::string, std::uint64_t>& sections)
        : JITLinkContext(nullptr), memory_(memory), entry_(entry), soft_(soft), problem_(problem),
          address_(address), sections_(sections) {}

    jitlink::JITLinkMemoryManager& getMemoryManager() override { return memory_; }
    void notifyFailed(llvm::Error problem) override {
        problem_ = llvm::toString(std::move(problem));
    }
    void lookup(const LookupMap& symbols,
                std::unique_ptr<jitlink::JITLinkAsyncLookupContinuation> on) override {
        jitlink::AsyncLookupResult found;
        for (const auto& [symbol, flags] : symbols) {
            const void* const address = hostSymbol(std::string_view(symbol), soft_);
            if (address == nullptr) {
                on->run(llvm::createStringError("unknown symbol " + symbol.str()));
                return;
            }
            found[symbol] = {llvm::orc::ExecutorAddr::fromPtr(address),
                             llvm::JITSymbolFlags::Exported};
        }
        on->run(std::move(found));
    }
    llvm::Error notifyResolved(jitlink::LinkGraph& graph) override {
        for (const jitlink::Symbol* const symbol : graph.defined_symbols()) {
            if (symbol->hasName() && symbol->getName() == entry_) {
                address_ = symbol->getAddress().toPtr<const char*>();
            }
        }
        for (const jitlink::Section& section : graph.sections()) {
            if (!section.empty() && section.getMemLifetime() != llvm::orc::MemLifetime::NoAlloc) {
                sections_[section.getName().str()] =
                    jitlink::SectionRange(section).getStart().getValue();
            }
        }
        return llvm::Error::success();
    }
    void notifyFinalized(jitlink::JITLinkMemoryManager::FinalizedAlloc allocation) override {
        allocation.release(); // the piece is the owner
    }
    bool shouldAddDefaultTargetPasses(const llvm::Triple&) const override { return true; }

private:
    PieceManager& memory_;
    const std::string& entry_;
    bool soft_;
    std::string& problem_;
    const char*& address_;
    std::map<std::string, std::uint64_t>& sections_;
};

} // namespace

LinkedCode linkWithJitLink(llvm::StringRef object, const std::string& entry, Slabs& slabs,
                           LinkOptions options) {
    auto graph = jitlink::createLinkGraphFromELFObject_x86_64(llvm::MemoryBufferRef(object, entry));
    if (!graph) {
        throw std::runtime_error(llvm::toString(graph.takeError()));
    }
    PieceManager memory(slabs);
    LinkedCode code;
    std::string problem;
    std::map<std::string, std::uint64_t> sections;
    // All of it happens before this returns.
    jitlink::link_ELF_x86_64(
        std::move(*graph),
        std::make_unique<Context>(memory, entry, options.softFloat, problem, code.entry, sections));
    if (!problem.empty()) {
        throw std::runtime_error(problem);
    }
    if (code.entry == nullptr) {
        throw std::runtime_error("the object lacks " + entry);
    }
    if (options.forDebugger) {
        code.debugObject = debugObjectOf(std::string_view(object), sections);
    }
    code.piece = memory.release();
    return code;
}

} // namespace QN::VMRT
