// The library is started once in a process and never taken down, so each test needs a process of
// its own: ctest gives it one.
#include <gmock/gmock.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#ifdef LUM_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace {

// A process that ends by abort() counts its lines too.
void count_lines_of_aborts() {
#ifdef LUM_COVERAGE
  std::signal(SIGABRT, [](int) { __gcov_dump(); });
#endif
}

class one_test_only : public testing::EmptyTestEventListener {
  void OnTestProgramStart(const testing::UnitTest &tests) override {
    if (tests.test_to_run_count() <= 1) return;
    std::fputs(
        "Each test needs a process of its own: use ctest, or name one with "
        "--gtest_filter.\n",
        stderr);
    std::exit(2);
  }
};

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleMock(&argc, argv);
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  testing::UnitTest::GetInstance()->listeners().Append(new one_test_only);
  count_lines_of_aborts();
  return RUN_ALL_TESTS();
}
