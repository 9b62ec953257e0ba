// A folder of a test's own, gone when the test is over.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace stress {

enum class folder_place { memory, disk };  // memory: where there is a file system in memory

class work_folder {
 public:
  explicit work_folder(folder_place place = folder_place::memory) {
    const std::filesystem::path in_memory = "/dev/shm";
    const bool use_memory =
        place == folder_place::memory && access(in_memory.c_str(), W_OK | X_OK) == 0;
    const auto parent = use_memory ? in_memory : std::filesystem::temp_directory_path();
    std::string name = (parent / "lum-stress-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
      throw std::runtime_error("no folder in " + parent.string());
    path_ = name;
  }
  ~work_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  work_folder(const work_folder &) = delete;
  work_folder &operator=(const work_folder &) = delete;

  const std::filesystem::path &path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline void write_file(const std::filesystem::path &file, const std::string &text) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

}  // namespace stress
