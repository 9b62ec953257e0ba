// Readings that move: what a module's description says of them, and what is read of it when.
#include <cmath>

#include "lum_linux/image.h"
#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;
using std::chrono::seconds;

const std::string minimal =
    "vendor = \"II-VI\"\nfirmware = [0, 6]\ntemperature = 40\nsupply = 3.3\n"
    "[sub_port_0]\npowers_dbm = [-2, 1, -19]\nreading_3 = 20\n";  // lines 1 to 7

module_image compile(const std::string &text) {
  image_result result = compile_module_image(text, "m.toml");
  for (const auto &problem : result.problems) ADD_FAILURE() << to_string(problem);
  return result.image.value_or(module_image{bytes(640), {}});
}

std::string problems_of(const std::string &motion) {
  const image_result result = compile_module_image(minimal + "[[motion]]\n" + motion, "m.toml");
  EXPECT_FALSE(result.image.has_value());
  std::string all;
  for (const auto &problem : result.problems) all += to_string(problem) + "\n";
  return all;
}

// A module that is as old as the test says.
class moving_module {
 public:
  explicit moving_module(const std::string &motions)
      : memory_(make_simulated_memory("m", compile(minimal + motions), [this] { return now_; })) {}

  uint16_t word(uint32_t offset, seconds age) {
    now_ = std::chrono::steady_clock::time_point(age);
    std::array<uint8_t, 2> bytes{};
    EXPECT_EQ(memory_->read(0, offset, bytes), module_ok);
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
  }
  // Hundredths of a dBm of sub-port 0's first power.
  int power(seconds age) {
    const int found = word(18, age);
    return found >= 0x1000 ? found - 0x10001 : found;
  }
  module_memory &memory() { return *memory_; }

 private:
  std::chrono::steady_clock::time_point now_{};
  std::unique_ptr<module_memory> memory_;
};

std::string power_0(const std::string &keys) {
  return "[[motion]]\nreading = \"power-0\"\nsub_port = 0\n" + keys + "\n";
}

TEST(ReadingMotion, WithoutOneAReadingStays) {
  moving_module module("");
  EXPECT_EQ(module.power(seconds(0)), -200);
  EXPECT_EQ(module.power(seconds(100000)), -200);
}

TEST(ReadingMotion, DriftGrowsWithTheHours) {
  moving_module module(power_0("drift_per_hour = -0.5"));
  EXPECT_EQ(module.power(seconds(0)), -200);
  EXPECT_EQ(module.power(seconds(1800)), -225);
  EXPECT_EQ(module.power(seconds(7200)), -300);
}

TEST(ReadingMotion, ASwingComesRoundWithItsPeriod) {
  moving_module module(power_0("swing = 0.4\nperiod_s = 120"));
  EXPECT_EQ(module.power(seconds(0)), -200);
  EXPECT_EQ(module.power(seconds(30)), -160);
  EXPECT_EQ(module.power(seconds(90)), -240);
  EXPECT_EQ(module.power(seconds(150)), -160);
}

TEST(ReadingMotion, AStepComesLastsAndComesAgain) {
  moving_module module(
      power_0("step = -3\nstep_after_s = 60\nstep_for_s = 20\nstep_every_s = 100"));
  EXPECT_EQ(module.power(seconds(59)), -200);
  EXPECT_EQ(module.power(seconds(60)), -500);
  EXPECT_EQ(module.power(seconds(79)), -500);
  EXPECT_EQ(module.power(seconds(80)), -200);
  EXPECT_EQ(module.power(seconds(160)), -500);
  EXPECT_EQ(module.power(seconds(180)), -200);
}

TEST(ReadingMotion, AStepWithoutAnEndStays) {
  moving_module once(power_0("step = 1.5\nstep_after_s = 10"));
  EXPECT_EQ(once.power(seconds(9)), -200);
  EXPECT_EQ(once.power(seconds(80000)), -50);
  moving_module single(power_0("step = 1.5\nstep_for_s = 10"));
  EXPECT_EQ(single.power(seconds(9)), -50);
  EXPECT_EQ(single.power(seconds(80000)), -200);
}

TEST(ReadingMotion, NoiseIsBoundedAndComesFromItsSeed) {
  moving_module module(power_0("noise = 0.2\nseed = 7"));
  moving_module same(power_0("noise = 0.2\nseed = 7"));
  moving_module other(power_0("noise = 0.2\nseed = 8"));
  int differences = 0;
  int least = 0;
  int most = -1000;
  for (int age = 0; age < 200; ++age) {
    const int power = module.power(seconds(age));
    EXPECT_EQ(power, same.power(seconds(age)));
    differences += power == other.power(seconds(age)) ? 0 : 1;
    least = std::min(least, power);
    most = std::max(most, power);
  }
  EXPECT_GE(least, -220);
  EXPECT_LE(most, -180);
  EXPECT_LT(least, -215);
  EXPECT_GT(most, -185);
  EXPECT_GT(differences, 150);
}

// The numbers themselves: another machine or release has to draw the same.
TEST(ReadingMotion, NoiseIsTheSameEverywhere) {
  reading_motion motion;
  motion.offset = 18;
  motion.seed = 7;
  motion.noise = 1;
  EXPECT_NEAR(displacement(motion, 0), -0.364486087043, 1e-9);
  EXPECT_NEAR(displacement(motion, 1.5), 0.291787984437, 1e-9);
}

TEST(ReadingMotion, EveryReadingHasItsUnit) {
  moving_module module(
      "[[motion]]\nreading = \"temperature\"\nstep = -45.5\n"
      "[[motion]]\nreading = \"supply\"\nstep = 0.01\n"
      "[[motion]]\nreading = \"reading-3\"\nsub_port = 0\nstep = 0.5\n"
      "[[motion]]\nreading = \"power-1\"\nsub_port = 1\nstep = 2\n");
  EXPECT_EQ(static_cast<int16_t>(module.word(14, seconds(1))), -5.5 * 256);
  EXPECT_EQ(module.word(16, seconds(1)), 33100);
  EXPECT_EQ(module.word(43, seconds(1)), 205);
  EXPECT_EQ(module.word(22, seconds(1)), 200);
  EXPECT_EQ(module.power(seconds(1)), -200);
}

TEST(ReadingMotion, NothingLeavesWhatAWordCanHold) {
  moving_module module(power_0("step = 100") +
                       "[[motion]]\nreading = \"supply\"\nstep = -100\n"
                       "[[motion]]\nreading = \"temperature\"\nstep = 100\n");
  EXPECT_EQ(module.power(seconds(1)), 4095);
  EXPECT_EQ(module.word(16, seconds(1)), 0);
  EXPECT_EQ(static_cast<int16_t>(module.word(14, seconds(1))), std::lround(127.99 * 256));
}

TEST(ReadingMotion, AByteOfAWordMovesAsTheWordDoes) {
  moving_module module(power_0("step = 1"));
  std::array<uint8_t, 1> byte{};
  std::array<uint8_t, 4> around{};
  EXPECT_EQ(module.memory().read(0, 19, byte), module_ok);
  EXPECT_EQ(byte[0], (0x10001 - 100) & 0xFF);
  EXPECT_EQ(module.memory().read(0, 17, around), module_ok);
  EXPECT_EQ(around[2], byte[0]);
  EXPECT_EQ(around[3], 0);
  EXPECT_EQ(module.memory().read(0, 146, byte), module_ok);
  EXPECT_EQ(byte[0], 0);
}

TEST(ReadingMotion, TheTimeBeginsWithTheModule) {
  std::chrono::steady_clock::time_point now{seconds(5000)};
  const auto image = compile(minimal + power_0("drift_per_hour = 1"));
  const auto memory = make_simulated_memory("m", image, [&now] { return now; });
  std::array<uint8_t, 2> first{};
  std::array<uint8_t, 2> later{};
  EXPECT_EQ(memory->read(0, 18, first), module_ok);
  now += seconds(3600);
  EXPECT_EQ(memory->replace(image), module_ok);
  EXPECT_EQ(memory->read(0, 18, later), module_ok);
  EXPECT_EQ(first, later);
}

TEST(ReadingMotion, WrongOnesAreRefusedByTheirKeys) {
  EXPECT_EQ(problems_of("reading = \"power-9\"\nnoise = 1"),
            "m.toml:9: 'reading' is \"power-9\", expected one of power-0, power-1, power-2, "
            "reading-3, reading-4, temperature, supply (did you mean \"power-0\"?)\n");
  EXPECT_NE(problems_of("sub_port = 0\nnoise = 1").find("missing key 'reading' in the motion"),
            std::string::npos);
  EXPECT_NE(
      problems_of("reading = \"power-0\"\nnoise = 1").find("missing key 'sub_port' in the motion"),
      std::string::npos);
  EXPECT_NE(problems_of("reading = \"power-0\"\nsub_port = 2\nnoise = 1")
                .find("m.toml:10: 'sub_port' is 2, expected an integer from 0 to 1"),
            std::string::npos);
  EXPECT_EQ(problems_of("reading = \"supply\"\nsub_port = 0\nnoise = 1"),
            "m.toml:10: 'sub_port' is given, expected none: 'supply' is of the module\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nnoise = -1"),
            "m.toml:10: 'noise' is -1, expected a number from 0 to 100\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nnoise = nan"),
            "m.toml:10: 'noise' is nan, expected a number from 0 to 100\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nswing = 1\nperiod_s = 0"),
            "m.toml:11: 'period_s' is 0, expected a number from 1 to 86400\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nnoise = 1\nseed = -1"),
            "m.toml:11: 'seed' is -1, expected an integer from 0 to 4294967295\n");
  EXPECT_NE(problems_of("reading = \"supply\"\nnoize = 1").find("unknown key 'noize'"),
            std::string::npos);
}

TEST(ReadingMotion, KeysThatNeedEachOtherAreWanted) {
  EXPECT_EQ(problems_of("reading = \"supply\"\nswing = 1"),
            "m.toml:10: 'swing' is given, expected 'period_s' beside it\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nnoise = 1\nperiod_s = 60"),
            "m.toml:11: 'period_s' is given, expected 'swing' beside it\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nnoise = 1\nstep_after_s = 60"),
            "m.toml:11: 'step_after_s' is given, expected 'step' beside it\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nstep = 1\nstep_for_s = 60\nstep_every_s = 60"),
            "m.toml:12: 'step_every_s' is 60, expected more than the 60 of 'step_for_s'\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nstep = 1\nstep_every_s = 60"),
            "m.toml:11: 'step_every_s' is given, expected 'step_for_s' beside it\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\n"),
            "m.toml:8: nothing moves the reading, expected noise, drift_per_hour, swing or step\n");
  EXPECT_EQ(problems_of("reading = \"supply\"\nnoise = 1\n[[motion]]\nreading = \"supply\"\n"
                        "drift_per_hour = 1\n"),
            "m.toml:11: 'reading' has a motion in line 8 already, expected one of its own for "
            "each\n");
}

}  // namespace
