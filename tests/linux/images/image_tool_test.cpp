// lum-module-image as it is called.
#include <sys/wait.h>

#include <cstdlib>

#include "modules/hardware_helpers.h"

namespace {

using namespace hardware_test;

class ImageTool : public testing::Test {
 protected:
  test_folder folder;
  std::string image = (folder / "eeprom").string();

  // Returns the exit status; what it says goes to `output`.
  int run(const std::string &arguments) {
    const std::string said = (folder / "said").string();
    const std::string command = IMAGE_TOOL " " + arguments + " >" + said + " 2>&1";
    const int status = std::system(command.c_str());
    output = contents(said);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int make() { return run(MODULE_EXAMPLES "/iivi-alarm.toml " + image); }

  std::string output;
};

TEST_F(ImageTool, MakesAnImage) {
  ASSERT_EQ(make(), 0) << output;
  const bytes content = read_file(image);
  EXPECT_EQ(content.size(), 640u);
  EXPECT_EQ(content[10], 0x02);
  EXPECT_EQ(content[129], 'I');
}

TEST_F(ImageTool, PokesAByte) {
  ASSERT_EQ(make(), 0);
  EXPECT_EQ(run("--poke " + image + " 0 10 0"), 0) << output;
  EXPECT_EQ(run("--poke " + image + " 2 0x92 0xAB"), 0) << output;
  const bytes content = read_file(image);
  EXPECT_EQ(content[10], 0);
  EXPECT_EQ(content[384 + 18], 0xAB);
}

TEST_F(ImageTool, DumpsHalfPagesWithTheirOffsets) {
  ASSERT_EQ(make(), 0);
  EXPECT_EQ(run("--dump " + image), 0);
  EXPECT_NE(output.find(" 128  18 49 49 2d 56 49 20"), std::string::npos) << output;
  EXPECT_NE(output.find("page 3\n"), std::string::npos);
  EXPECT_EQ(output.find("page 4\n"), std::string::npos);
}

TEST_F(ImageTool, WrongDescriptionIsRefusedWithFileAndLine) {
  write_file(folder / "bad.toml", "vendor = \"II-VI\"\nfirmware = [0, 6]\nsupply = 7\n");
  EXPECT_EQ(run((folder / "bad.toml").string() + " " + image), 1);
  EXPECT_NE(output.find("bad.toml:3: 'supply' is 7"), std::string::npos) << output;
  EXPECT_FALSE(std::filesystem::exists(image));
}

TEST_F(ImageTool, PlacesThatAreNotThereAreRefused) {
  ASSERT_EQ(make(), 0);
  EXPECT_EQ(run("--poke " + image + " 9 200 1"), 1);
  EXPECT_EQ(run("--poke " + (folder / "none").string() + " 0 0 1"), 1);
  EXPECT_EQ(run("--dump " + (folder / "none").string()), 1);
  EXPECT_EQ(read_file(image).size(), 640u);
}

TEST_F(ImageTool, WrongUsageIsRefused) {
  EXPECT_EQ(run(""), 2);
  EXPECT_EQ(run("one"), 2);
  EXPECT_EQ(run("--poke " + image + " 0 256 1"), 2);
  EXPECT_EQ(run("--poke " + image + " 0 ten 1"), 2);
  EXPECT_EQ(run("--poke " + image + " 0 10"), 2);
  EXPECT_EQ(run("--dump " + image + " --poke " + image + " 0 10 1"), 2);
}

}  // namespace
