// Sending to sockets whose reader has stopped, is not there, or takes streams.
#include "lum_linux/outlet.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

constexpr std::chrono::milliseconds patience(50);

class outlets : public testing::Test {
 protected:
  outlets() {
    std::string made = (std::filesystem::temp_directory_path() / "lum-outlet-XXXXXX").string();
    folder_ = mkdtemp(made.data());
    place = (folder_ / "socket").string();
  }
  ~outlets() override {
    if (reader >= 0) ::close(reader);
    std::filesystem::remove_all(folder_);
  }
  void play(int type) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, place.c_str());
    reader = ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(reader, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    if (type == SOCK_STREAM) {
      ASSERT_EQ(::listen(reader, 0), 0);
    }
  }
  static std::string read_from(int socket) {
    std::array<char, 256> text = {};
    const ssize_t count = ::recv(socket, text.data(), text.size(), 0);
    return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(0, count))};
  }

  std::string place;
  int reader = -1;

 private:
  std::filesystem::path folder_;
};

TEST_F(outlets, bring_a_datagram) {
  play(SOCK_DGRAM);
  EXPECT_EQ(lum_linux::send_within(patience, place, "a line"), 0);
  EXPECT_EQ(read_from(reader), "a line");
}

TEST_F(outlets, give_up_where_nobody_reads_and_go_on_when_somebody_does) {
  play(SOCK_DGRAM);
  int code = 0, sent = 0;
  while ((code = lum_linux::send_within(patience, place, "a line")) == 0) ++sent;
  EXPECT_EQ(code, ETIMEDOUT);
  EXPECT_GT(sent, 0);
  EXPECT_EQ(read_from(reader), "a line");
  EXPECT_EQ(lum_linux::send_within(patience, place, "another"), 0);
}

TEST_F(outlets, put_a_zero_behind_each_line_of_a_stream) {
  play(SOCK_STREAM);
  EXPECT_EQ(lum_linux::send_within(patience, place, "a line"), 0);
  const int connection = ::accept(reader, nullptr, nullptr);
  EXPECT_EQ(read_from(connection), std::string("a line\0", 7));
  ::close(connection);
}

TEST_F(outlets, give_up_where_no_stream_is_taken) {
  play(SOCK_STREAM);
  int code = 0;
  while (code == 0) code = lum_linux::send_within(patience, place, "a line");
  EXPECT_EQ(code, ETIMEDOUT);
}

TEST_F(outlets, tell_what_is_not_there) {
  EXPECT_EQ(lum_linux::send_within(patience, place, "a line"), ENOENT);
  EXPECT_EQ(lum_linux::send_within(patience, "", "a line"), EINVAL);
  EXPECT_EQ(lum_linux::send_within(patience, std::string(108, 'x'), "a line"), EINVAL);
  EXPECT_EQ(lum_linux::send_within(patience, "@lum-outlet-test-nobody", "a line"), ECONNREFUSED);
}

}  // namespace
