#include "scratch.h"

#include <cstdlib>
#include <string>

#include "lum.h"
#include "lum_linux/services.h"

const std::filesystem::path &bench::scratch() {
  static const struct temporary {
    std::filesystem::path path;
    temporary() {
      std::string name = "/tmp/lum-bench-XXXXXX";
      path = mkdtemp(name.data()) == nullptr ? "." : name;
    }
    ~temporary() {
      lum_linux::checkpoints_close();
      if (path != ".") std::filesystem::remove_all(path);
    }
  } made;
  return made.path;
}

bool bench::open_checkpoints() {
  static const bool is_open = [] {
    lum_linux::checkpoints_set_path(scratch() / "store.db");
    std::uint32_t restart = 0;
    return lum_chkpt_init(lum_get_ctx(), &restart) == 0;
  }();
  return is_open;
}
