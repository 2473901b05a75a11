// SPDX-License-Identifier: Apache-2.0
// The scheduler alone: nodes that do nothing, through the real Node and Executor, beside oneTBB's flow graph.
//
// A name is Product_Phase/shape/nodes/workers. Construction (nodes and edges) and the run (from scheduling to
// the end of the last node) are timed apart; "bytes" is the memory a node takes besides its name.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <malloc.h>

#include <benchmark/benchmark.h>
#include <oneapi/tbb/flow_graph.h>
#include <oneapi/tbb/global_control.h>

#include "graph/executor.h"
#include "graph/node.h"
#include "graph/run_all.h"

namespace bootweave {
namespace {

enum Shape : std::int64_t { kWide, kChain, kLayers };

constexpr std::size_t kLayerWidth = 100;

/// The nodes that node `index` waits for.
template <typename Visit>
void ForEachProvider(Shape shape, std::size_t index, Visit visit) {
    if (shape == kChain && index > 0) {
        visit(index - 1);
    } else if (shape == kLayers && index >= kLayerWidth) {
        const std::size_t layer = (index / kLayerWidth - 1) * kLayerWidth;
        visit(layer + (index * 7 + 3) % kLayerWidth);
        visit(layer + (index * 13 + 58) % kLayerWidth);
    }
}

class IdleNode final : public Node {
  public:
    explicit IdleNode(std::string name) : Node(std::move(name), 1) {}
    void Execute() override {}
    [[nodiscard]] std::string GetDotAttributes() const override { return {}; }
};

using Nodes = std::vector<std::unique_ptr<IdleNode>>;

Nodes MakeNodes(Shape shape, std::size_t count) {
    Nodes nodes;
    nodes.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
        nodes.push_back(std::make_unique<IdleNode>(std::to_string(index)));
        ForEachProvider(shape, index,
                        [&](std::size_t provider) { nodes[index]->AddDependency(*nodes[provider]); });
    }
    return nodes;
}

std::vector<Node*> Pointers(const Nodes& nodes) {
    std::vector<Node*> pointers;
    for (const auto& node : nodes) {
        pointers.push_back(node.get());
    }
    return pointers;
}

struct Case {
    explicit Case(const benchmark::State& state)
        : shape(static_cast<Shape>(state.range(0))),
          nodes(static_cast<std::size_t>(state.range(1))),
          workers(static_cast<std::int32_t>(state.range(2))) {}
    Shape shape;
    std::size_t nodes;
    std::int32_t workers;
};

void Report(benchmark::State& state, const Case& given) {
    constexpr const char* kNames[] = {"wide", "chain", "layers"};
    state.SetLabel(kNames[given.shape]);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(given.nodes));
}

std::size_t AllocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void Bootweave_Construct(benchmark::State& state) {
    const Case given(state);
    double bytes = 0;
    for (auto iteration : state) {
        const std::size_t before = AllocatedBytes();
        Nodes nodes = MakeNodes(given.shape, given.nodes);
        state.PauseTiming();
        bytes = static_cast<double>(AllocatedBytes() - before) / static_cast<double>(given.nodes);
        nodes.clear();
        state.ResumeTiming();
    }
    Report(state, given);
    state.counters["bytes"] = bytes;
}

void Bootweave_Run(benchmark::State& state) {
    const Case given(state);
    for (auto iteration : state) {
        state.PauseTiming();
        {
            Nodes nodes = MakeNodes(given.shape, given.nodes);
            const std::vector<Node*> all = Pointers(nodes);
            Executor executor(given.workers, false);
            state.ResumeTiming();
            RunAllForward(all, executor);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    Report(state, given);
}

class FlowGraph {
  public:
    using FlowNode = oneapi::tbb::flow::continue_node<oneapi::tbb::flow::continue_msg>;
    using Message = oneapi::tbb::flow::continue_msg;

    FlowGraph(Shape shape, std::size_t count) {
        for (std::size_t index = 0; index < count; ++index) {
            FlowNode& node = nodes_.emplace_back(graph_, [](const Message&) { return Message(); });
            bool first = true;
            ForEachProvider(shape, index, [&](std::size_t provider) {
                oneapi::tbb::flow::make_edge(nodes_[provider], node);
                first = false;
            });
            if (first) {
                starts_.push_back(&node);
            }
        }
    }
    void Run() {
        for (FlowNode* node : starts_) {
            node->try_put(Message());
        }
        graph_.wait_for_all();
    }

  private:
    oneapi::tbb::flow::graph graph_;
    std::deque<FlowNode> nodes_;
    std::vector<FlowNode*> starts_;
};

/// The thread that waits works, too.
oneapi::tbb::global_control LimitWorkers(std::int32_t workers) {
    return {oneapi::tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(workers)};
}

void Tbb_Construct(benchmark::State& state) {
    const Case given(state);
    double bytes = 0;
    for (auto iteration : state) {
        const std::size_t before = AllocatedBytes();
        auto graph = std::make_unique<FlowGraph>(given.shape, given.nodes);
        state.PauseTiming();
        bytes = static_cast<double>(AllocatedBytes() - before) / static_cast<double>(given.nodes);
        graph.reset();
        state.ResumeTiming();
    }
    Report(state, given);
    state.counters["bytes"] = bytes;
}

void Tbb_Run(benchmark::State& state) {
    const Case given(state);
    const auto limit = LimitWorkers(given.workers);
    for (auto iteration : state) {
        state.PauseTiming();
        {
            FlowGraph graph(given.shape, given.nodes);
            state.ResumeTiming();
            graph.Run();
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    Report(state, given);
}

void Constructions(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"shape", "nodes", "workers"})->UseRealTime()->Unit(benchmark::kMillisecond);
    bench->ArgsProduct({{kWide, kChain, kLayers}, {10'000, 100'000, 1'000'000}, {1}});
}

void Runs(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"shape", "nodes", "workers"})->UseRealTime()->MeasureProcessCPUTime();
    bench->Unit(benchmark::kMillisecond);
    bench->ArgsProduct({{kWide, kChain, kLayers}, {10'000, 100'000, 1'000'000}, {1, 2}});
}

BENCHMARK(Bootweave_Construct)->Apply(Constructions);
BENCHMARK(Tbb_Construct)->Apply(Constructions);
BENCHMARK(Bootweave_Run)->Apply(Runs);
BENCHMARK(Tbb_Run)->Apply(Runs);

}  // namespace
}  // namespace bootweave

BENCHMARK_MAIN();
