// The group `pools`: memory of the IR, and counting what is in it.
#include "groups.hpp"
#include "ir_workload.hpp"
#include "peers/llvm.hpp"

#include <qn/collect_statistics_service.hpp>
#include <qn/ir.hpp>
#include <qn/testing_hooks.hpp>
#include <qn/transform_run.hpp>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace bench {
namespace {

constexpr std::size_t allocations = 10'000;
constexpr std::size_t nodeBytes = 64; // a node with two operands

/// A testing hook that is on for as long as this lives.
class HookOn {
public:
    explicit HookOn(TsTestingHook* hook) : hook_(hook) {
        if (hook_ != nullptr) {
            hook_->setHookValFromC(1);
        }
    }
    HookOn(const HookOn&) = delete;
    HookOn& operator=(const HookOn&) = delete;
    ~HookOn() {
        if (hook_ != nullptr) {
            hook_->setHookValFromC(0);
        }
    }

private:
    TsTestingHook* hook_;
};

LoopMaker allocates(TsTestingHook* hook) {
    return [hook] {
        return repeat([hook] {
            const HookOn on(hook);
            QN::Pool pool(QN::PoolKind::Graph);
            for (std::size_t i = 0; i < allocations; ++i) {
                keep(pool.allocate(nodeBytes, QN::EntityKind::Node));
            }
        });
    };
}

Loop mallocs() {
    const auto blocks = std::make_shared<std::vector<void*>>(allocations);
    return repeat([blocks] {
        for (void*& block : *blocks) {
            block = std::malloc(nodeBytes);
            keep(block);
        }
        for (void* const block : *blocks) {
            std::free(block);
        }
    });
}

Loop makesNodes() {
    struct Graph {
        QN::Scope scope{QN::ScopeFlavor::Unit, "unit"};
        QN::Function& function = *scope.addFunction("f", QN::Type::voidType());
    };
    const auto graph = std::make_shared<Graph>();
    return repeat([graph] {
        graph->function.replaceCfg(std::make_unique<QN::Cfg>(graph->function));
        QN::Cfg& cfg = graph->function.cfg();
        QN::Builder builder(cfg, cfg.addBlock());
        QN::Entity* value = cfg.constantDouble(1);
        for (std::size_t i = 0; i < allocations; ++i) {
            value = builder.binary(QN::Op::Add, value, value);
        }
    });
}

LoopMaker countsEntities(std::shared_ptr<const QN::Scope> scope) {
    return [scope] {
        const auto service = std::make_shared<QN::CollectStatisticsService>();
        return repeat([scope, service] {
            // A run looks at its scope and changes nothing of it.
            QN::TransformRun run(1, "nothing", const_cast<QN::Scope&>(*scope), scope->name());
            service->prepass(run);
            service->postpass(run);
        });
    };
}

std::string memoryOf(const char* what, const QN::Scope& scope) {
    std::size_t nodes = 0;
    std::size_t operands = 0;
    std::size_t pool = 0;
    std::size_t reserved = 0;
    for (const auto& function : scope.functions()) {
        for (const QN::Block& block : function->cfg().blocks()) {
            for (const QN::Node& node : block.nodes()) {
                ++nodes;
                operands += node.bytes();
            }
        }
        pool += function->cfg().pool().bytesAllocated();
        reserved += function->cfg().pool().bytesReserved();
    }
    char text[300];
    std::snprintf(text, sizeof text,
                  "%s: %.1f bytes per node with its operands; %.1f with all that is in the graph "
                  "(blocks, variables, constants, names), %.1f with the rest of the pools' chunks",
                  what, static_cast<double>(operands) / static_cast<double>(nodes),
                  static_cast<double>(pool) / static_cast<double>(nodes),
                  static_cast<double>(reserved) / static_cast<double>(nodes));
    return text;
}

} // namespace

Group buildPools() {
    Group group;
    group.subjects = {"quarn", "LLVM 19", "malloc and free"};
    const std::shared_ptr<const QN::Scope> large = makeOneFunction(100'000);
    const std::shared_ptr<const QN::Scope> many = makeManyFunctions(10'000);
    const auto peer = [](const std::shared_ptr<const QN::Scope>& scope) -> LoopMaker {
        return [scope] {
            const auto module = std::make_shared<LlvmModule>(*scope);
            return repeat([module] { module->count(); });
        };
    };
    constexpr auto each = static_cast<double>(allocations);
    group.rows = {
        {.operation = "allocate 64 bytes",
         .makers = {allocates(nullptr), [] { return llvmAllocations(allocations, nodeBytes); },
                    mallocs},
         .instructionRepetitions = 10,
         .units = each},
        {.operation = "the same with tracking on",
         .makers = {allocates(TSFEAT_QUARNCfgPoolInternalLeakDetection), LoopMaker(), LoopMaker()},
         .instructionRepetitions = 10,
         .units = each},
        {.operation = "the same with canaries too",
         .makers = {allocates(TSFEAT_QUARNPoolSanityChecks), LoopMaker(), LoopMaker()},
         .instructionRepetitions = 10,
         .units = each},
        {.operation = "make a node of two operands",
         .makers = {makesNodes, LoopMaker(), LoopMaker()},
         .instructionRepetitions = 10,
         .units = each},
        {.operation = "statistics of one function, per node",
         .makers = {countsEntities(large), peer(large), LoopMaker()},
         .instructionRepetitions = 5,
         .units = static_cast<double>(nodesOf(*large))},
        {.operation = "statistics of 10,000 functions, per node",
         .makers = {countsEntities(many), peer(many), LoopMaker()},
         .instructionRepetitions = 5,
         .units = static_cast<double>(nodesOf(*many))},
    };
    group.notes = {memoryOf("one function of 100,000 nodes", *large),
                   memoryOf("10,000 functions of 40 nodes", *many)};
    return group;
}

} // namespace bench
