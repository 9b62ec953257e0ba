// Fault scripts: their text, and each fault on a simulated module.
#include <chrono>
#include <set>

#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

fault_script script_of(const std::string &text) {
  fault_script script;
  std::string error;
  EXPECT_TRUE(parse_fault_script(text, script, error)) << error;
  return script;
}

std::string error_of(const std::string &text) {
  fault_script script;
  script.seed = 99;
  std::string error;
  EXPECT_FALSE(parse_fault_script(text, script, error)) << text;
  EXPECT_EQ(script.seed, 99u) << "a wrong script must change nothing";
  return error;
}

TEST(FaultScript, EveryWordIsRead) {
  const fault_script script = script_of(
      "refuse-every=3, refuse-percent=10,code=121 only=writes,delay-ms=20,hang,"
      "flip-every=4,flip-percent=5,flip-bits=2,half-every=6,remove-after=7,"
      "insert-after=8,seed=9");
  fault_script expected;
  expected.refuse_every = 3;
  expected.refuse_percent = 10;
  expected.refuse_code = 121;
  expected.refuse_reads = false;
  expected.delay = std::chrono::milliseconds(20);
  expected.hang = true;
  expected.flip_every = 4;
  expected.flip_percent = 5;
  expected.flip_bits = 2;
  expected.half_every = 6;
  expected.remove_after = 7;
  expected.insert_after = 8;
  expected.seed = 9;
  EXPECT_EQ(script, expected);
  EXPECT_EQ(script_of(to_string(expected)), expected);
}

TEST(FaultScript, NoneIsAScriptWithoutFaults) {
  EXPECT_EQ(script_of("none"), fault_script());
  EXPECT_EQ(to_string(fault_script()), "none");
}

TEST(FaultScript, WrongWordsAreNamed) {
  EXPECT_EQ(error_of("refuse-every=x"),
            "'refuse-every' is \"x\", expected an integer from 0 to 1000000000");
  EXPECT_EQ(error_of("refuse-percent=101"),
            "'refuse-percent' is \"101\", expected an integer from 0 to 100");
  EXPECT_EQ(error_of("code=0"), "'code' is \"0\", expected an integer from 1 to 4294967295");
  EXPECT_EQ(error_of("only=both"), "'only' is \"both\", expected reads or writes");
  EXPECT_EQ(error_of("hang=1"), "'hang' is \"1\", expected the word alone");
  EXPECT_EQ(error_of("seed"), "'seed' is \"\", expected an integer from 0 to 4294967295");
  EXPECT_EQ(error_of("delay-ms=-1"), "'delay-ms' is \"-1\", expected an integer from 0 to 600000");
  EXPECT_EQ(error_of("none,hang"), "'none' stands beside other words, expected it alone");
  EXPECT_EQ(error_of("explode").substr(0, 24), "unknown word 'explode', ");
  EXPECT_TRUE(error_of("flip-evry=2").ends_with("seed or none (did you mean \"flip-every\"?)"));
  EXPECT_EQ(error_of(" , ").substr(0, 15), "nothing given, ");
}

TEST(Faults, EveryNthTransferIsRefused) {
  const auto rack = simulated_rack(script_of("refuse-every=3,code=121"));
  std::vector<cerrno> results;
  for (int i = 0; i < 7; ++i) results.push_back(read_one(*rack));
  EXPECT_EQ(results, (std::vector<cerrno>{0, 0, 121, 0, 0, 121, 0}));
}

TEST(Faults, PercentageRefusesAboutThatMany) {
  const auto rack = simulated_rack(script_of("refuse-percent=25,seed=5"));
  int refused = 0;
  for (int i = 0; i < 4000; ++i) refused += read_one(*rack) == 5 ? 1 : 0;
  EXPECT_NEAR(refused, 1000, 120);
}

TEST(Faults, SameSeedGivesTheSameRefusals) {
  const auto refusals = [](const fault_script &script) {
    const auto rack = simulated_rack(script);
    std::vector<cerrno> results;
    for (int i = 0; i < 200; ++i) results.push_back(read_one(*rack));
    return results;
  };
  EXPECT_EQ(refusals(script_of("refuse-percent=50,seed=2")),
            refusals(script_of("refuse-percent=50,seed=2")));
  EXPECT_NE(refusals(script_of("refuse-percent=50,seed=2")),
            refusals(script_of("refuse-percent=50,seed=3")));
}

TEST(Faults, AllAndNothingArePercentagesToo) {
  const auto rack = simulated_rack(script_of("refuse-percent=100"));
  for (int i = 0; i < 50; ++i) EXPECT_EQ(read_one(*rack), 5u);
  ASSERT_EQ(rack->set_faults(rsip, {}), 0u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(read_one(*rack), 0u);
}

TEST(Faults, OnlyWritesAreRefusedAndNotMade) {
  const auto rack = simulated_rack(script_of("refuse-every=1,only=writes"));
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_EQ(rack->write_byte(slot, instance, port, 2, 146, 0xAB), 5u);
  uint8_t value = 0;
  EXPECT_EQ(rack->peek(rsip, 2, 146, {&value, 1}), 0u);
  EXPECT_NE(value, 0xAB);
}

TEST(Faults, OnlyReadsAreRefused) {
  const auto rack = simulated_rack(script_of("refuse-every=1,only=reads"));
  EXPECT_EQ(read_one(*rack), 5u);
  EXPECT_EQ(rack->write_byte(slot, instance, port, 2, 146, 0xAB), 0u);
}

TEST(Faults, RefusedReadLeavesTheBufferAlone) {
  const auto rack = simulated_rack(script_of("refuse-every=1"));
  bytes buffer(8, 0x77);
  EXPECT_EQ(rack->read_block(slot, instance, port, 0, 0, 8, buffer.data()), 5u);
  EXPECT_EQ(buffer, bytes(8, 0x77));
}

TEST(Faults, DelayMakesEachTransferSlower) {
  const auto rack = simulated_rack(script_of("delay-ms=30"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
  EXPECT_GE(statistics(*rack).last_duration, std::chrono::milliseconds(30));
}

int differing_bits(const bytes &left, const bytes &right) {
  int count = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    count += __builtin_popcount(static_cast<unsigned>(left[i] ^ right[i]));
  }
  return count;
}

TEST(Faults, EveryNthReadHasFlippedBitsAndTheMemoryHasNot) {
  const auto rack = simulated_rack(script_of("flip-every=2"));
  const bytes whole = numbered(640);
  const bytes lower(whole.begin(), whole.begin() + 128);
  std::vector<int> flipped;
  for (int i = 0; i < 4; ++i) {
    bytes buffer(128);
    EXPECT_EQ(rack->read_block(slot, instance, port, 0, 0, 128, buffer.data()), 0u);
    flipped.push_back(differing_bits(buffer, lower));
  }
  EXPECT_EQ(flipped, (std::vector<int>{0, 1, 0, 1}));
  bytes clean(128);
  EXPECT_EQ(rack->peek(rsip, 0, 0, clean), 0u);
  EXPECT_EQ(clean, lower);
}

TEST(Faults, HalfWrittenPageHasTheNewFirstHalfAndTheOldSecondHalf) {
  const auto rack = simulated_rack(script_of("half-every=2"));
  const auto read = [&] {
    bytes buffer(4);
    EXPECT_EQ(rack->read_block(slot, instance, port, 3, 128, 4, buffer.data()), 0u);
    return buffer;
  };
  const auto fill = [&](uint8_t value) {
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(rack->poke(rsip, 3, 128 + i, value), 0u);
  };
  fill(1);
  EXPECT_EQ(read(), (bytes{1, 1, 1, 1}));
  fill(2);
  EXPECT_EQ(read(), (bytes{2, 2, 1, 1}));
  EXPECT_EQ(read(), (bytes{2, 2, 2, 2}));
}

TEST(Faults, HalfWrittenPageNeverReadBeforeEndsInZeros) {
  const auto rack = simulated_rack(script_of("half-every=1"));
  const bytes whole = numbered(640);
  bytes buffer(4);
  EXPECT_EQ(rack->read_block(slot, instance, port, 0, 4, 4, buffer.data()), 0u);
  EXPECT_EQ(buffer, (bytes{whole[4], whole[5], 0, 0}));
}

TEST(Faults, SingleByteReadsAreNeverHalfWritten) {
  const auto rack = simulated_rack(script_of("half-every=1"));
  uint8_t value = 0;
  EXPECT_EQ(rack->read_byte(slot, instance, port, 0, 1, &value), 0u);
  EXPECT_EQ(value, 7);
}

TEST(Faults, ModuleIsPulledBetweenTwoTransfers) {
  const auto rack = simulated_rack(script_of("remove-after=2"));
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_TRUE(rack->present(rsip));
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_FALSE(rack->present(rsip));
  EXPECT_EQ(read_one(*rack), 19u);
  EXPECT_TRUE(rack->status(rsip)->pulled);
}

TEST(Faults, PulledModuleIsNotPulledAgainOnceItIsBack) {
  const auto rack = simulated_rack(script_of("remove-after=1"));
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_EQ(read_one(*rack), 19u);
  EXPECT_EQ(rack->insert(rsip), 0u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(read_one(*rack), 0u);
}

TEST(Faults, PulledModuleComesBackByItself) {
  const auto rack = simulated_rack(script_of("remove-after=1,insert-after=2"));
  const uint64_t first = rack->status(rsip)->insertion;
  std::vector<cerrno> results;
  for (int i = 0; i < 5; ++i) results.push_back(read_one(*rack));
  EXPECT_EQ(results, (std::vector<cerrno>{0, 19, 19, 0, 0}));
  EXPECT_NE(rack->status(rsip)->insertion, first);
}

TEST(Faults, WorkOverAFileToo) {
  test_folder folder;
  write_file(folder / "eeprom", numbered(640));
  const auto rack = rack_of(make_file_memory(folder / "eeprom"), script_of("refuse-every=2"),
                            module_backend::file);
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_EQ(read_one(*rack), 5u);
  EXPECT_EQ(rack->remove(rsip), 0u);
  EXPECT_EQ(read_one(*rack), 19u);
  EXPECT_TRUE(std::filesystem::exists(folder / "eeprom"));
  EXPECT_EQ(rack->insert(rsip), 0u);
  EXPECT_EQ(read_one(*rack), 0u);
}

TEST(Faults, LookingInFromOutsideMeetsNone) {
  const auto rack = simulated_rack(script_of("refuse-every=1,flip-every=1,delay-ms=5000"));
  bytes page(128);
  EXPECT_EQ(rack->peek(rsip, 1, 128, page), 0u);
  EXPECT_EQ(rack->poke(rsip, 1, 128, 0x42), 0u);
  EXPECT_EQ(statistics(*rack).attempted, 0u);
}

}  // namespace
