// Module images: every byte where it belongs, and wrong descriptions refused.
#include <array>
#include <map>

#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

module_image compile(const std::string &text) {
  image_result result = compile_module_image(text, "module.toml");
  for (const auto &problem : result.problems) ADD_FAILURE() << to_string(problem);
  return result.image.value_or(module_image{bytes(640), {}});
}

// Every problem on a line of its own.
std::string problems_of(const std::string &text) {
  const image_result result = compile_module_image(text, "m.toml");
  EXPECT_FALSE(result.image.has_value());
  std::string all;
  for (const auto &problem : result.problems) all += to_string(problem) + "\n";
  return all;
}

// What is not zero, by position in the file.
std::map<std::size_t, int> set_bytes(const module_image &image) {
  std::map<std::size_t, int> result;
  for (std::size_t i = 0; i < image.bytes.size(); ++i) {
    if (image.bytes[i] != 0) result[i] = image.bytes[i];
  }
  return result;
}

std::string text_at(const module_image &image, std::size_t position, std::size_t size) {
  const auto start = image.bytes.begin() + static_cast<std::ptrdiff_t>(position);
  return {start, start + static_cast<std::ptrdiff_t>(size)};
}

int word_at(const module_image &image, std::size_t position) {
  return image.bytes[position] << 8 | image.bytes[position + 1];
}

const std::string minimal = "vendor = \"II-VI\"\nfirmware = [0, 6]\n";

TEST(Image, IdentityOfAnOldMapModule) {
  const module_image image = compile(R"(
vendor = "II-VI"
part = "PN-1234567890123"
revision = "A1"
serial = "SN1"
date = "240611"
oui = "00.1f.A2"
extra_code = "CODE"
extra_id = "EXTRA-ID"
firmware = [1, 7]
)");
  ASSERT_EQ(image.bytes.size(), 640u);
  EXPECT_EQ(image.bytes[0], 0x18);
  EXPECT_EQ(image.bytes[39], 1);
  EXPECT_EQ(image.bytes[40], 7);
  EXPECT_EQ(image.bytes[128], 0x18);
  EXPECT_EQ(text_at(image, 129, 16), "II-VI           ");
  EXPECT_EQ(image.bytes[145], 0x00);
  EXPECT_EQ(image.bytes[146], 0x1F);
  EXPECT_EQ(image.bytes[147], 0xA2);
  EXPECT_EQ(text_at(image, 148, 16), "PN-1234567890123");
  EXPECT_EQ(text_at(image, 164, 2), "A1");
  EXPECT_EQ(text_at(image, 166, 16), "SN1             ");
  EXPECT_EQ(text_at(image, 182, 8), "240611  ");
  EXPECT_EQ(text_at(image, 512 + 20, 4), "CODE");
  EXPECT_EQ(text_at(image, 512 + 64, 18), "EXTRA-ID          ");
}

TEST(Image, TextsNotGivenAreBlankOnPage0AndZeroOnPage3) {
  const module_image image = compile(minimal);
  EXPECT_EQ(text_at(image, 148, 42), std::string(42, ' '));
  for (std::size_t i = 512; i < 640; ++i) EXPECT_EQ(image.bytes[i], 0) << i;
}

TEST(Image, FirmwareInDigitsIsTwoCharacters) {
  const module_image image = compile("vendor = \"ACCELINK\"\nfirmware = \"17\"\n");
  EXPECT_EQ(image.bytes[39], 0x31);
  EXPECT_EQ(image.bytes[40], 0x37);
}

TEST(Image, TemperatureAndSupply) {
  module_image image = compile(minimal + "temperature = 42.5\nsupply = 3.2491\n");
  EXPECT_EQ(image.bytes[14], 42);
  EXPECT_EQ(image.bytes[15], 128);
  EXPECT_EQ(word_at(image, 16), 32491);
  image = compile(minimal + "temperature = -10.25\nsupply = 3\n");
  EXPECT_EQ(image.bytes[14], 0xF5);
  EXPECT_EQ(image.bytes[15], 0xC0);
  EXPECT_EQ(word_at(image, 16), 30000);
}

TEST(Image, ReadingsOfBothSubPorts) {
  const module_image image = compile(minimal +
                                     "[sub_port_0]\nreadings = [0x0102, 0x0304, 0x0506, 0x0708, "
                                     "0x090A]\n[sub_port_1]\nreadings = [0x1112, 0x1314, 0x1516, "
                                     "0x1718, 0x191A]\n");
  const std::array<std::pair<std::size_t, int>, 10> expected = {{{18, 0x0102},
                                                                 {45, 0x0304},
                                                                 {68, 0x0506},
                                                                 {43, 0x0708},
                                                                 {47, 0x090A},
                                                                 {41, 0x1112},
                                                                 {22, 0x1314},
                                                                 {66, 0x1516},
                                                                 {20, 0x1718},
                                                                 {24, 0x191A}}};
  for (const auto &[position, value] : expected) EXPECT_EQ(word_at(image, position), value);
}

TEST(Image, PowersAreHundredthsOneMoreThanTwosComplementBelowZero) {
  const module_image image = compile(minimal +
                                     "[sub_port_0]\npowers_dbm = [10, -5.0, -0.02]\nreading_3 = "
                                     "27.4\nreading_4 = 6553.5\n[sub_port_1]\npowers_dbm = "
                                     "[-40.97, 40.95, -0.01]\n");
  EXPECT_EQ(word_at(image, 18), 0x03E8);
  EXPECT_EQ(word_at(image, 45), 65537 - 500);
  EXPECT_EQ(word_at(image, 68), 0xFFFF);
  EXPECT_EQ(word_at(image, 43), 274);
  EXPECT_EQ(word_at(image, 47), 65535);
  EXPECT_EQ(word_at(image, 41), 0xF000);
  EXPECT_EQ(word_at(image, 22), 0x0FFF);
  EXPECT_EQ(word_at(image, 66), 0xFFFF);
}

TEST(Image, FlagsStandAtTheirOffsets) {
  const module_image image =
      compile(minimal + "[flags]\n9=1\n10=2\n11=3\n12=4\n13=5\n64=6\n70=7\n49=8\n");
  const std::map<std::size_t, int> expected = {{9, 1},  {10, 2}, {11, 3}, {12, 4},
                                               {13, 5}, {49, 8}, {64, 6}, {70, 7}};
  for (const auto &[position, value] : expected) EXPECT_EQ(image.bytes[position], value);
}

const std::string status_and_settings =
    "[sub_port_0]\nstatus = [0x21, 0x22, 0x23]\nsetting_a = 0x2425\nsetting_b = 0x2627\n"
    "[sub_port_1]\nstatus = [0x21, 0x32, 0x33]\nsetting_a = 0x3435\nsetting_b = 0x3637\n";

// The layout page as typed here: offset of page 3, value.
const std::map<std::size_t, int> status_and_settings_bytes = {
    {128, 0x33}, {129, 0x34}, {130, 0x35}, {131, 0x36}, {132, 0x37}, {133, 0x23}, {134, 0x24},
    {135, 0x25}, {136, 0x26}, {137, 0x27}, {146, 0x32}, {147, 0x22}, {150, 0x21}};

TEST(Image, OldMapHasStatusAndSettingsOnPage3) {
  const module_image image = compile(minimal + "memory_map = \"old\"\n" + status_and_settings);
  for (const auto &[offset, value] : status_and_settings_bytes) {
    EXPECT_EQ(image.bytes[512 + offset - 128], value) << offset;
  }
  for (std::size_t i = 256; i < 384; ++i) EXPECT_EQ(image.bytes[i], 0) << i;
}

TEST(Image, NewMapHasStatusAndSettingsOnPage1SixtyFourFurtherOn) {
  const module_image image = compile(minimal + "memory_map = \"new\"\n" + status_and_settings);
  for (const auto &[offset, value] : status_and_settings_bytes) {
    EXPECT_EQ(image.bytes[256 + offset + 64 - 128], value) << offset;
  }
  for (std::size_t i = 512; i < 640; ++i) EXPECT_EQ(image.bytes[i], 0) << i;
}

TEST(Image, ThresholdsAndP2SettingStandOnPage2) {
  const module_image image =
      compile(minimal +
              "[sub_port_0]\nthresholds = [300, 200]\np2_setting = 0x0102\n[sub_port_1]\n"
              "thresholds = [-100, -200]\np2_setting = 0x0304\n");
  EXPECT_EQ(word_at(image, 384 + 144 - 128), 300);
  EXPECT_EQ(word_at(image, 384 + 146 - 128), 200);
  EXPECT_EQ(word_at(image, 384 + 152 - 128), 0xFF9C);
  EXPECT_EQ(word_at(image, 384 + 154 - 128), 0xFF38);
  EXPECT_EQ(word_at(image, 384 + 194 - 128), 0x0102);
  EXPECT_EQ(word_at(image, 384 + 178 - 128), 0x0304);
}

TEST(Image, ChecksumOfPage0IsTheSumOf128To221) {
  const module_image image = compile(minimal);
  // 0x18, "II-VI", 11 blanks, three zeros, 42 blanks, zeros
  const int sum = 0x18 + 'I' + 'I' + '-' + 'V' + 'I' + 53 * ' ';
  EXPECT_EQ(image.bytes[222], sum % 256);
  EXPECT_EQ(page_0_checksum(image), sum % 256);
}

TEST(Image, RawBytesTakeThePlaceOfOthersBeforeTheChecksumIsMade) {
  const module_image image = compile(minimal +
                                     "[[raw]]\npage = 0\noffset = 129\nbytes = [0xFF, "
                                     "0x00]\n[[raw]]\noffset = 3\nbytes = [7]\n");
  EXPECT_EQ(image.bytes[129], 0xFF);
  EXPECT_EQ(image.bytes[130], 0x00);
  EXPECT_EQ(image.bytes[3], 7);
  EXPECT_EQ(image.bytes[222], page_0_checksum(image));
}

TEST(Image, RawChecksumStays) {
  const module_image image = compile(minimal + "[[raw]]\npage = 0\noffset = 222\nbytes = [0x11]\n");
  EXPECT_EQ(image.bytes[222], 0x11);
  EXPECT_NE(page_0_checksum(image), 0x11);
}

TEST(Image, NothingElseIsSet) {
  const module_image image = compile("vendor = \"X\"\nfirmware = [1, 2]\nidentifier = 0x1E\n");
  std::map<std::size_t, int> expected = {{0, 0x1E}, {39, 1}, {40, 2}, {128, 0x1E}, {129, 'X'}};
  for (std::size_t i = 130; i < 145; ++i) expected[i] = ' ';
  for (std::size_t i = 148; i < 190; ++i) expected[i] = ' ';
  expected[222] = (0x1E + 'X' + 57 * ' ') % 256;
  EXPECT_EQ(set_bytes(image), expected);
}

TEST(Image, PagesAreAsManyAsAskedFor) {
  EXPECT_EQ(compile(minimal + "pages = 18\n").bytes.size(), 19u * 128);
  EXPECT_EQ(compile(minimal + "pages = 256\n").bytes.size(), 257u * 128);
}

TEST(Image, FaultsOfASimulatedModule) {
  const module_image image = compile(minimal + "faults = \"refuse-every=3,code=121\"\n");
  EXPECT_EQ(image.faults.refuse_every, 3u);
  EXPECT_EQ(image.faults.refuse_code, 121u);
}

TEST(Image, EveryProblemIsReportedWithItsLine) {
  EXPECT_EQ(problems_of("vendor = 5\nfirmware = \"1x\"\nsupply = 9\ntemperature = \"hot\"\n"
                        "oui = \"00.1f\"\nmemory_map = \"newest\"\nidentifier = 256\n"),
            "m.toml:1: 'vendor' is an integer, expected a text of 1 to 16 bytes\n"
            "m.toml:2: 'firmware' is \"1x\", expected two bytes such as [1, 7], or two digits such "
            "as \"17\"\n"
            "m.toml:3: 'supply' is 9, expected a number from 0 to 6.5535\n"
            "m.toml:4: 'temperature' is no number, expected one from -128 to 127.99\n"
            "m.toml:5: 'oui' is \"00.1f\", expected three bytes in hexadecimal such as "
            "\"00.1f.22\"\n"
            "m.toml:6: 'memory_map' is \"newest\", expected \"old\" or \"new\"\n"
            "m.toml:7: 'identifier' is 256, expected an integer from 0 to 255\n");
}

TEST(Image, UnknownKeysAreRefused) {
  EXPECT_EQ(problems_of(minimal + "colour = \"red\"\n").substr(0, 43),
            "m.toml:3: unknown key 'colour' in the modul");
  EXPECT_EQ(problems_of(minimal + "[flags]\n15 = 1\n"),
            "m.toml:4: unknown key '15' in the flags, expected one of 9, 10, 11, 12, 13, 49, 64, "
            "70\n");
  EXPECT_NE(problems_of(minimal + "[sub_port_0]\npower = 1\n").find("unknown key 'power'"),
            std::string::npos);
  EXPECT_NE(problems_of(minimal + "[sub_port_2]\n").find("unknown key 'sub_port_2'"),
            std::string::npos);
}

TEST(Image, WrongNumbersAreRefused) {
  const auto in_sub_port = [](const std::string &line) {
    return problems_of(minimal + "[sub_port_1]\n" + line + "\n");
  };
  EXPECT_EQ(in_sub_port("status = [1, 2]"),
            "m.toml:4: 'status' has 2 elements, expected an array of 3 whole numbers from 0 to "
            "255\n");
  EXPECT_EQ(in_sub_port("status = [1, 2, 256]"),
            "m.toml:4: 'status' holds 256, expected an array of 3 whole numbers from 0 to 255\n");
  EXPECT_EQ(in_sub_port("readings = [1, 2, 3, 4, 5.5]"),
            "m.toml:4: 'readings' holds 5.5, expected an array of 5 whole numbers from 0 to "
            "65535\n");
  EXPECT_EQ(in_sub_port("readings = 5"),
            "m.toml:4: 'readings' is no array, expected an array of 5 whole numbers from 0 to "
            "65535\n");
  EXPECT_EQ(in_sub_port("powers_dbm = [0, 0, 41]"),
            "m.toml:4: 'powers_dbm' holds 41, expected an array of 3 numbers from -40.97 to "
            "40.95\n");
  EXPECT_EQ(in_sub_port("powers_dbm = [0, nan, 0]"),
            "m.toml:4: 'powers_dbm' holds nan, expected an array of 3 numbers from -40.97 to "
            "40.95\n");
  EXPECT_EQ(in_sub_port("thresholds = [40000, 0]"),
            "m.toml:4: 'thresholds' holds 40000, expected an array of 2 whole numbers from -32768 "
            "to 32767\n");
  EXPECT_EQ(in_sub_port("reading_3 = -1"),
            "m.toml:4: 'reading_3' is -1, expected a number from 0 to 6553.5\n");
  EXPECT_EQ(in_sub_port("setting_a = 65536"),
            "m.toml:4: 'setting_a' is 65536, expected an integer from 0 to 65535\n");
}

TEST(Image, TwoKeysForOneByteHaveToAgree) {
  EXPECT_EQ(problems_of(minimal + "extra_code = \"CODE\"\n[sub_port_0]\nstatus = [1, 0, 0]\n"),
            "m.toml:5: 'sub_port_0.status' wants 1 in byte 150 of page 3, which 'extra_code' in "
            "line 3 has set to 68; expected the same value\n");
  EXPECT_EQ(
      problems_of(minimal + "[sub_port_0]\nstatus = [1, 0, 0]\n[sub_port_1]\nstatus = [0, 0, 0]\n"),
      "m.toml:6: 'sub_port_1.status' wants 0 in byte 150 of page 3, which "
      "'sub_port_0.status' in line 4 has set to 1; expected the same value\n");
  compile(minimal +
          "memory_map = \"new\"\nextra_code = \"CODE\"\n[sub_port_0]\n"
          "status = [1, 0, 0]\n");
}

TEST(Image, RawBytesHaveToFit) {
  const auto raw = [](const std::string &keys) {
    return problems_of(minimal + "[[raw]]\n" + keys + "\n");
  };
  EXPECT_EQ(raw("offset = 126\nbytes = [1, 2, 3]"),
            "m.toml:5: 'bytes' holds 3 bytes, expected at most 2 from offset 126 on\n");
  EXPECT_EQ(raw("page = 3\noffset = 255\nbytes = [1, 2]"),
            "m.toml:6: 'bytes' holds 2 bytes, expected at most 1 from offset 255 on\n");
  EXPECT_EQ(raw("page = 4\noffset = 128\nbytes = [1]"),
            "m.toml:4: 'page' is 4, expected an integer from 0 to 3\n");
  EXPECT_EQ(raw("offset = 0"),
            "m.toml:3: missing key 'bytes' in the raw bytes, expected an array of whole numbers "
            "from 0 to 255\n");
  EXPECT_EQ(raw("offset = 0\nbytes = []"),
            "m.toml:5: 'bytes' has 0 elements, expected an array of whole numbers from 0 to 255\n");
}

TEST(Image, OtherKindsAreRefused) {
  EXPECT_NE(problems_of("vendor = \"\xC3\xA4\"\nfirmware = [0, 6]\n").find("'vendor' holds a char"),
            std::string::npos);
  EXPECT_NE(problems_of(minimal + "faults = \"explode\"\n").find("m.toml:3: 'faults': unknown"),
            std::string::npos);
  EXPECT_NE(problems_of(minimal + "flags = 3\n").find("m.toml:3: 'flags' is an integer"),
            std::string::npos);
  EXPECT_NE(problems_of("firmware = 17\n").find("'firmware' is of another kind"),
            std::string::npos);
  EXPECT_NE(problems_of("").find("missing key 'vendor'"), std::string::npos);
}

TEST(Image, TextThatIsNoTomlIsRefusedWithItsLine) {
  EXPECT_EQ(problems_of("vendor = \"II-VI\"\nfirmware = = 3\n").substr(0, 9), "m.toml:2:");
}

TEST(Image, MissingAndUnreadableDescriptionsAreRefused) {
  test_folder folder;
  for (const auto &file : {folder / "none.toml", folder.path()}) {
    const image_result result = read_module_image(file);
    EXPECT_FALSE(result.image.has_value());
    ASSERT_EQ(result.problems.size(), 1u);
    EXPECT_EQ(result.problems[0].file, file.string());
    EXPECT_EQ(result.problems[0].message.substr(0, 16), "cannot be read: ");
  }
}

TEST(Image, ExamplesCompile) {
  int count = 0;
  for (const auto &entry : std::filesystem::directory_iterator(MODULE_EXAMPLES)) {
    const image_result result = read_module_image(entry.path());
    for (const auto &problem : result.problems) ADD_FAILURE() << to_string(problem);
    ++count;
  }
  EXPECT_GE(count, 5);
}

TEST(Image, WrittenFileIsTheImageAndReplacesTheOldOneWhole) {
  test_folder folder;
  const module_image image = compile(minimal);
  std::string error;
  write_file(folder / "eeprom", bytes(5000, 1));
  ASSERT_TRUE(write_module_image(image, folder / "eeprom", error)) << error;
  EXPECT_EQ(read_file(folder / "eeprom"), image.bytes);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(Image, FileThatCannotBeWrittenIsReported) {
  test_folder folder;
  std::string error;
  const auto file = folder / "no" / "eeprom";
  EXPECT_FALSE(write_module_image(compile(minimal), file, error));
  EXPECT_EQ(error, file.string() + ": cannot be written: No such file or directory");
}

}  // namespace
