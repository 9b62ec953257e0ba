// A folder of a test's own, gone when the test is over.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

enum class folder_place { disk, memory };  // memory: where there is a file system in memory

class test_folder {
 public:
  explicit test_folder(folder_place place = folder_place::disk) {
    const std::filesystem::path in_memory = "/dev/shm";
    const bool use_memory =
        place == folder_place::memory && access(in_memory.c_str(), W_OK | X_OK) == 0;
    const auto parent = use_memory ? in_memory : std::filesystem::temp_directory_path();
    std::string name = (parent / "lum-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no folder in " + parent.string());
    }
    path_ = std::filesystem::canonical(name);
  }
  // A test may have taken the rights to the folder away.
  ~test_folder() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  test_folder(const test_folder &) = delete;
  test_folder &operator=(const test_folder &) = delete;

  const std::filesystem::path &path() const { return path_; }
  std::filesystem::path operator/(const std::string &name) const { return path_ / name; }

  std::filesystem::path write(const std::string &name, const std::string &text) const;

 private:
  std::filesystem::path path_;
};

// Writes a whole file, making its folder.
inline void write_file(const std::filesystem::path &file, const std::string &text) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

inline std::filesystem::path test_folder::write(const std::string &name,
                                                const std::string &text) const {
  const std::filesystem::path file = path_ / name;
  write_file(file, text);
  return file;
}

// The bytes of a file, none when it cannot be read.
inline std::string contents(const std::filesystem::path &file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
