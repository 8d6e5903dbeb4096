// The older of LLVM's linkers of code in memory.
#include "vmrt/llvm/linker.hpp"
#include "vmrt/llvm/runtime.hpp"

#include <llvm/ExecutionEngine/RuntimeDyld.h>
#include <llvm/Object/ObjectFile.h>
#include <llvm/Support/MemoryBuffer.h>
#include <stdexcept>

namespace QN::VMRT {
namespace {

/// Puts all sections of an object into one piece. What is not needed to run, debug information for
/// one, stays in memory of its own.
class PieceManager : public llvm::RuntimeDyld::MemoryManager {
public:
    explicit PieceManager(Slabs& slabs) : slabs_(slabs) {}
    PieceManager(const PieceManager&) = delete;
    PieceManager& operator=(const PieceManager&) = delete;
    ~PieceManager() override {
        if (piece_.writable != nullptr) {
            slabs_.giveBack(piece_);
        }
    }

    bool needsToReserveAllocationSpace() override { return true; }
    void reserveAllocationSpace(std::uintptr_t codeBytes, llvm::Align codeAlign,
                                std::uintptr_t readOnlyBytes, llvm::Align readOnlyAlign,
                                std::uintptr_t writableBytes, llvm::Align writableAlign) override {
        // Room for the beginning of each part to be moved to a multiple of its alignment.
        piece_ = slabs_.take(codeBytes + codeAlign.value() + readOnlyBytes + readOnlyAlign.value() +
                             writableBytes + writableAlign.value());
        used_ = 0;
    }
    std::uint8_t* allocateCodeSection(std::uintptr_t bytes, unsigned alignment, unsigned,
                                      llvm::StringRef) override {
        return allocate(bytes, alignment);
    }
    std::uint8_t* allocateDataSection(std::uintptr_t bytes, unsigned alignment, unsigned,
                                      llvm::StringRef, bool) override {
        return allocate(bytes, alignment);
    }
    void registerEHFrames(std::uint8_t*, std::uint64_t, std::size_t) override {}
    void deregisterEHFrames() override {}
    bool finalizeMemory(std::string*) override { return false; }

    void mapInto(llvm::RuntimeDyld& linker) const {
        for (const std::uint8_t* const section : sections_) {
            linker.mapSectionAddress(
                section, reinterpret_cast<std::uint64_t>(
                             piece_.executable +
                             (reinterpret_cast<const char*>(section) - piece_.writable)));
        }
    }
    CodePiece release() { return std::exchange(piece_, {}); }

private:
    std::uint8_t* allocate(std::uintptr_t bytes, unsigned alignment) {
        const std::size_t unit = std::max<std::size_t>(alignment, 1);
        const auto base = reinterpret_cast<std::uintptr_t>(piece_.writable);
        const std::uintptr_t start = (base + used_ + unit - 1) / unit * unit - base;
        if (start + bytes > piece_.bytes) {
            throw std::runtime_error("the sections do not fit into what was reserved for them");
        }
        used_ = start + bytes;
        auto* const section = reinterpret_cast<std::uint8_t*>(piece_.writable + start);
        sections_.push_back(section);
        return section;
    }

    Slabs& slabs_;
    CodePiece piece_;
    std::size_t used_ = 0;
    std::vector<const std::uint8_t*> sections_;
};

class HostResolver : public llvm::JITSymbolResolver {
public:
    explicit HostResolver(bool soft) : soft_(soft) {}
    void lookup(const LookupSet& symbols, OnResolvedFunction done) override {
        LookupResult found;
        for (const llvm::StringRef symbol : symbols) {
            const void* const address = hostSymbol(std::string_view(symbol), soft_);
            if (address == nullptr) {
                done(llvm::createStringError("unknown symbol " + symbol.str()));
                return;
            }
            found[symbol] = llvm::JITEvaluatedSymbol(reinterpret_cast<std::uint64_t>(address),
                                                     llvm::JITSymbolFlags::Exported);
        }
        done(std::move(found));
    }
    llvm::Expected<LookupSet> getResponsibilitySet(const LookupSet&) override {
        return LookupSet();
    }

private:
    bool soft_;
};

} // namespace

LinkedCode linkWithRuntimeDyld(llvm::StringRef object, const std::string& entry, Slabs& slabs,
                               LinkOptions options) {
    auto file = llvm::object::ObjectFile::createObjectFile(llvm::MemoryBufferRef(object, entry));
    if (!file) {
        throw std::runtime_error(llvm::toString(file.takeError()));
    }
    PieceManager memory(slabs);
    HostResolver resolver(options.softFloat);
    llvm::RuntimeDyld linker(memory, resolver);
    const auto loaded = linker.loadObject(**file);
    if (!linker.hasError()) {
        memory.mapInto(linker);
        linker.resolveRelocations();
    }
    if (linker.hasError()) {
        throw std::runtime_error(linker.getErrorString().str());
    }
    LinkedCode code;
    code.entry = reinterpret_cast<const char*>(linker.getSymbol(entry).getAddress());
    if (code.entry == nullptr) {
        throw std::runtime_error("the object lacks " + entry);
    }
    if (options.forDebugger) {
        if (const auto shown = loaded->getObjectForDebug(**file); shown.getBinary() != nullptr) {
            code.debugObject = shown.getBinary()->getMemoryBufferRef().getBuffer().str();
        }
    }
    code.piece = memory.release();
    return code;
}

} // namespace QN::VMRT
