// Modules behind `eeprom` files, good and bad.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

class FileMemory : public testing::Test {
 protected:
  test_folder folder;
  std::filesystem::path file = folder / "eeprom";
  std::unique_ptr<module_memory> memory = make_file_memory(file);

  bytes read(uint32_t page, uint32_t offset, std::size_t length, cerrno expected = module_ok) {
    bytes out(length);
    EXPECT_EQ(memory->read(page, offset, out), expected);
    return out;
  }
};

TEST_F(FileMemory, LowerPageStandsAtTheStartWhateverThePage) {
  write_file(file, numbered(128 * 5));
  const bytes whole = numbered(128 * 5);
  for (const uint32_t page : {0u, 1u, 3u}) {
    EXPECT_EQ(read(page, 0, 128), bytes(whole.begin(), whole.begin() + 128));
  }
}

TEST_F(FileMemory, UpperPageNStandsAt128TimesNPlus1) {
  write_file(file, numbered(128 * 5));
  const bytes whole = numbered(128 * 5);
  EXPECT_EQ(read(0, 128, 128), bytes(whole.begin() + 128, whole.begin() + 256));
  EXPECT_EQ(read(3, 128, 128), bytes(whole.begin() + 512, whole.begin() + 640));
  EXPECT_EQ(read(1, 192, 1)[0], whole[256 + 64]);
}

TEST_F(FileMemory, ReadAcrossTheHalvesTakesEachFromItsPlace) {
  write_file(file, numbered(128 * 5));
  const bytes whole = numbered(128 * 5);
  const bytes got = read(2, 126, 4);
  EXPECT_EQ(got, (bytes{whole[126], whole[127], whole[384], whole[385]}));
}

TEST_F(FileMemory, AbsentFileIsAnAbsentModule) {
  EXPECT_FALSE(memory->present());
  read(0, 0, 1, 19);
  EXPECT_EQ(memory->write(0, 0, 1), 19u);
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(FileMemory, AbsentFolderIsAnAbsentModule) {
  memory = make_file_memory(folder / "no" / "eeprom");
  EXPECT_FALSE(memory->present());
  read(0, 0, 1, 19);
}

TEST_F(FileMemory, ShortFileFailsBehindItsEndOnly) {
  write_file(file, numbered(200));
  EXPECT_TRUE(memory->present());
  read(0, 0, 128);
  read(0, 128, 72);
  read(0, 128, 73, 5);
  read(3, 128, 1, 5);
}

TEST_F(FileMemory, EmptyFileIsAPresentModuleThatFails) {
  write_file(file, bytes{});
  EXPECT_TRUE(memory->present());
  read(0, 0, 1, 5);
  EXPECT_EQ(memory->write(0, 0, 1), 5u);
  EXPECT_EQ(std::filesystem::file_size(file), 0u);
}

TEST_F(FileMemory, FolderInTheFilesPlaceFails) {
  std::filesystem::create_directory(file);
  EXPECT_TRUE(memory->present());
  read(0, 0, 1, 5);
  EXPECT_NE(memory->write(0, 0, 1), 0u);
}

TEST_F(FileMemory, PipeInTheFilesPlaceFailsWithoutWaiting) {
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  read(0, 0, 1, 5);
  EXPECT_NE(memory->write(0, 0, 1), 0u);
}

TEST_F(FileMemory, UnreadableFilePassesTheErrnoOn) {
  write_file(file, numbered(640));
  std::filesystem::permissions(file, std::filesystem::perms::none);
  const without_root ordinary(folder);
  if (ordinary.is_root()) GTEST_SKIP() << "root reads everything";
  EXPECT_TRUE(memory->present());
  read(0, 0, 1, EACCES);
}

TEST_F(FileMemory, FolderThatMayNotBeEnteredIsAPlaceThatCannotBeReached) {
  const std::filesystem::path shut = folder / "shut";
  std::filesystem::create_directory(shut);
  std::filesystem::permissions(shut, std::filesystem::perms::none);
  const auto all = rack_of(make_file_memory(shut / "eeprom"), {}, module_backend::file);
  {
    const without_root ordinary(folder);
    if (ordinary.is_root()) GTEST_SKIP() << "root enters every folder";
    all->look();
  }
  const module_status status = *all->status(rsip);
  EXPECT_EQ(status.place_code, static_cast<cerrno>(EACCES));
  EXPECT_EQ(status.place, shut.native());
  EXPECT_FALSE(status.present);
}

TEST_F(FileMemory, NothingIsKnownOfACageOnceItIsStopped) {
  write_file(file, numbered(640));
  const auto all = rack_of(make_file_memory(file), {}, module_backend::file);
  EXPECT_TRUE(all->present(rsip));
  EXPECT_TRUE(all->status(rsip)->is_known());
  all->stop();
  EXPECT_FALSE(all->status(rsip)->is_known());
  EXPECT_FALSE(all->status(rsip)->present);
}

TEST_F(FileMemory, LinkInACirclePassesTheErrnoOn) {
  std::filesystem::create_symlink(file, file);
  read(0, 0, 1, ELOOP);
}

TEST_F(FileMemory, WriteChangesOneByteInPlace) {
  write_file(file, numbered(640));
  bytes expected = numbered(640);
  EXPECT_EQ(memory->write(2, 146, 0xAB), 0u);
  expected[128 * 3 + 18] = 0xAB;
  EXPECT_EQ(memory->write(2, 5, 0xCD), 0u);
  expected[5] = 0xCD;
  EXPECT_EQ(read_file(file), expected);
}

TEST_F(FileMemory, WriteNeverMakesTheFileLonger) {
  write_file(file, numbered(300));
  EXPECT_EQ(memory->write(1, 128 + 44, 1), 5u);
  EXPECT_EQ(std::filesystem::file_size(file), 300u);
  EXPECT_EQ(memory->write(1, 128 + 43, 1), 0u);
}

TEST_F(FileMemory, PageBehindTheEndIsNamed) {
  write_file(file, numbered(256));
  read(0, 0, 256);
  EXPECT_EQ(memory->trouble(), "");
  read(3, 128, 23, 5);
  EXPECT_EQ(memory->trouble(), "page 3 is not there: the file ends after 256 bytes");
  EXPECT_EQ(memory->write(1, 200, 1), 5u);
  EXPECT_EQ(memory->trouble(), "page 1 is not there: the file ends after 256 bytes");
  read(0, 128, 128);
  EXPECT_EQ(memory->trouble(), "");
}

TEST_F(FileMemory, PageThatEndsEarlyIsNamed) {
  write_file(file, numbered(300));
  read(1, 128, 44);
  read(1, 128, 45, 5);
  EXPECT_EQ(memory->trouble(), "page 1 is not all there: the file ends after 300 bytes");
  write_file(file, numbered(100));
  read(1, 0, 101, 5);
  EXPECT_EQ(memory->trouble(), "the lower page is not all there: the file ends after 100 bytes");
}

TEST_F(FileMemory, FileThatComesGoesAndIsReplacedIsFollowed) {
  write_file(file, bytes(640, 1));
  EXPECT_EQ(read(0, 0, 1), bytes{1});
  const uint64_t first = memory->insertion();
  std::filesystem::remove(file);
  read(0, 0, 1, 19);
  EXPECT_FALSE(memory->present());
  write_file(folder / "other", bytes(640, 2));
  std::filesystem::rename(folder / "other", file);
  EXPECT_EQ(read(0, 0, 1), bytes{2});
  EXPECT_TRUE(memory->present());
  EXPECT_NE(memory->insertion(), first);
}

TEST_F(FileMemory, ChangedBytesAreNoOtherModule) {
  write_file(file, bytes(640, 1));
  const uint64_t first = memory->insertion();
  EXPECT_EQ(memory->write(0, 10, 2), 0u);
  EXPECT_EQ(memory->insertion(), first);
}

}  // namespace
