// SPDX-License-Identifier: Apache-2.0
// What a node costs, counted, so that a change that makes large graphs slower fails here on any machine.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "graph/run_all.h"
#include "graph/stall.h"
#include "gtest/gtest.h"
#include "tests/support/fake_platform.h"

// A sanitizer has its own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {
std::atomic<std::size_t> g_allocations = 0;
}  // namespace

void* operator new(std::size_t size) {
    ++g_allocations;
    if (void* memory = std::malloc(size)) {  // NOLINT(cppcoreguidelines-no-malloc)
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);  // NOLINT(cppcoreguidelines-no-malloc)
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);  // NOLINT(cppcoreguidelines-no-malloc)
}

namespace bootweave {
namespace {

constexpr std::size_t kNodes = 1000;

class IdleNode final : public Node {
  public:
    IdleNode() : Node("node", 1) {}
    void Execute() override {}
    [[nodiscard]] std::string GetDotAttributes() const override { return {}; }
};

class NodeCostTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        StallWatch::Reset();
        nodes_.reserve(kNodes);
        all_.reserve(kNodes);
    }
    void MakeNodes() {
        for (std::size_t i = 0; i < kNodes; ++i) {
            nodes_.push_back(std::make_unique<IdleNode>());
            all_.push_back(nodes_.back().get());
        }
    }
    void MakeChain() {
        MakeNodes();
        for (std::size_t i = 1; i < kNodes; ++i) {
            nodes_[i]->AddDependency(*nodes_[i - 1]);
        }
    }
    std::size_t AllocationsOfARun() {
        Executor executor(1, false);
        const std::size_t before = g_allocations;
        RunAllForward(all_, executor);
        return g_allocations - before;
    }

    std::vector<std::unique_ptr<IdleNode>> nodes_;
    std::vector<Node*> all_;
};

TEST_F(NodeCostTest, ANodeOfAChainIsOneAllocationWithItsEdges) {
    const std::size_t before = g_allocations;
    MakeChain();
    EXPECT_EQ(kNodes, g_allocations - before);
}

TEST_F(NodeCostTest, TheRunOfAChainAllocatesForTheGraphAndNotForEachNode) {
    MakeChain();
    EXPECT_LT(AllocationsOfARun(), kNodes / 20);
}

TEST_F(NodeCostTest, TheRunOfFreeNodesAllocatesForTheGraphAndNotForEachNode) {
    MakeNodes();
    EXPECT_LT(AllocationsOfARun(), kNodes / 20);
}

TEST_F(NodeCostTest, ANodeTakesAtMost300BytesBesidesItsName) {
    EXPECT_LE(sizeof(IdleNode), 300U);
}

}  // namespace
}  // namespace bootweave

#endif
