// What is answered, and recorded by the library, when memory runs out while a batch is carried out.
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "interface_manager/failing_memory.h"
#include "interface_manager/im_harness.h"
#include "lum_linux/platform.h"
#include "small_node.h"
#include "test_folder.h"

namespace lum_linux {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint64_t all = UINT64_MAX;
constexpr uint32_t no_memory = ENOMEM;
const std::string long_name = "Ots0_1_0_1_0 with a name too long to be kept without memory";

class ImMemory : public testing::Test {
 protected:
  void SetUp() override {
#ifdef LUM_SANITIZERS_NEW
    GTEST_SKIP() << "memory does not run out here";
#endif
  }
};

TEST_F(ImMemory, FailsEveryElementByNameWhereverMemoryRunsOut) {
  uint64_t served = 0;
  for (bool created = false; !created; ++served) {
    im_harness node;
    node.at_completion = [] { memory_runs_out(0, 0); };
    node.in_completion = [&](int tag) { memory_runs_out(served, tag == 1 ? all : 0); };
    node.im.hold(true);
    node.remove(1, {"nothing"});
    node.create(2, {long_name, "b"});
    node.im.hold(false);
    const completion reply = node.wait(2)[1];
    EXPECT_EQ(reply.count, 2);
    EXPECT_THAT(reply.names, ElementsAre(long_name, "b"));
    created = reply.batch_error == 0;
    if (created) break;
    EXPECT_EQ(reply.batch_error, no_memory);
    EXPECT_THAT(reply.results, Each(no_memory));
    EXPECT_THAT(reply.data, Each(IsEmpty()));
    EXPECT_THAT(node.im.controllers(), IsEmpty());
    EXPECT_TRUE(node.im.wait_idle(soon));
    EXPECT_EQ(node.im.statistics().failed_elements, 3u);  // one of them the deletion's
    const auto handles = node.created({"b", long_name});
    EXPECT_THAT(node.im.controllers(), SizeIs(2));
    EXPECT_EQ(node.im.handle_of("b"), handles[0]);
    EXPECT_EQ(node.im.handle_of(long_name), handles[1]);
  }
  EXPECT_GT(served, 2u);
}

TEST_F(ImMemory, KeepsWhatAnEarlierBatchHasCreated) {
  im_harness node;
  const auto before = node.created({"a"});
  node.at_completion = [] { memory_runs_out(0, 0); };
  node.in_completion = [&](int tag) { memory_runs_out(1, tag == 1 ? all : 0); };
  node.im.hold(true);
  node.remove(1, {"nothing"});
  node.create(2, {"a", "b"});
  node.im.hold(false);
  EXPECT_THAT(node.wait(3)[2].results, Each(no_memory));
  EXPECT_EQ(node.im.handle_of("a"), before[0]);
  EXPECT_EQ(node.im.controllers().size(), 1u);
}

TEST_F(ImMemory, DeletesAndUpdatesWithoutMemory) {
  im_harness node;
  const auto handles = node.created({long_name, "b"});
  node.at_completion = [] { memory_runs_out(0, 0); };
  node.in_completion = [](int) { memory_runs_out(0, all); };
  node.im.hold(true);
  node.remove(1, {"nothing"});
  node.update(2, handles, 1);
  node.remove(3, {"b", long_name});
  node.im.hold(false);
  const auto replies = node.wait(4);
  EXPECT_THAT(replies[2].results, Each(0u));
  EXPECT_THAT(replies[2].names, ElementsAre(long_name, "b"));
  EXPECT_THAT(replies[3].results, Each(0u));
  EXPECT_THAT(node.im.controllers(), IsEmpty());
}

constexpr uint32_t rsip = make_rsip(0, 1, 0, 1);
constexpr uint32_t port_handle = 11;

std::unique_ptr<platform> start_node(const test_folder &folder) {
  const std::string one_port = small_node::with(small_node::port(1, "module = '1.eeprom'"));
  std::string error;
  auto started = platform::start(small_node::described(one_port, folder), error);
  if (!started) throw std::runtime_error(error);
  lum_infra_params params = {};
  params.evm = started->evm();
  params.platform_cbs = &started->callbacks();
  std::strcpy(params.process_name, "memory");
  if (lum_lib_init() != 0 || lum_infra_init(&params) != 0) {
    throw std::runtime_error("the library does not start");
  }
  return started;
}

// A batch of the test's own, whose completion lets the manager's next allocation fail.
void let_next_batch_fail(interface_manager &im) {
  const char *name = "nothing";
  const std::vector<uint8_t> payload(LUM_DELETE_ELEMENT_SIZE);
  const auto complete = [](imca_reply_info_type *, void *) { memory_runs_out(0, 1); };
  EXPECT_EQ(im.request_by_name(&name, LUM_IFTYPE_OTS, payload.data(), 1, LUM_IM_DELETE, nullptr, 1,
                               complete),
            0u);
}

cerrno create_port() {
  const lum_slot_props slot = {1, 4};
  lum_port_props port = {};
  port.rsip = rsip;
  port.port_index = 1;
  port.port_handle = port_handle;
  const cerrno rc = lum_plat_init(0, 1, 0, &slot);
  return rc != 0 ? rc : lum_create_ports(1, &port);
}

std::vector<uint32_t> recorded_handles() {
  std::vector<uint32_t> handles(LUM_SUB_PORTS);
  for (uint32_t i = 0; i < LUM_SUB_PORTS; ++i) {
    lum_safely_get_ifhandle(port_handle, i, &handles[i]);
  }
  return handles;
}

TEST_F(ImMemory, TheLibraryRecordsNoControllerUntilItAsksAgain) {
  const test_folder folder;
  const auto node = start_node(folder);
  std::atomic<uint32_t> told{0};
  node->observe_controllers([&](bool, auto controllers) { told += controllers.size(); });
  node->im().hold(true);
  let_next_batch_fail(node->im());
  ASSERT_EQ(create_port(), 0u);
  node->im().hold(false);
  ASSERT_TRUE(node->im().wait_idle(soon));
  EXPECT_EQ(told, 0u);
  EXPECT_THAT(node->im().controllers(), IsEmpty());

  EXPECT_EQ(lum_replay_controllers(), 0u);
  ASSERT_TRUE(node->wait_created(LUM_SUB_PORTS, soon));
  EXPECT_THAT(recorded_handles(), ElementsAre(0x08000001u, 0x08000002u));
  EXPECT_EQ(node->im().handle_of("Ots0_1_0_1_1"), recorded_handles()[1]);
  EXPECT_TRUE(node->stop());
}

}  // namespace
}  // namespace lum_linux
