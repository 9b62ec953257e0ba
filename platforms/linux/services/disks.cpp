#include "lum_linux/disks.h"

#include <dirent.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "services/immortal.h"
#include "services/signals_blocked.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds bound_of_look(2000);

struct ending {
  std::mutex lock;
  std::condition_variable reached;
  bool is_reached = false;
};

struct looks {
  std::mutex lock;
  std::multiset<fs::path> waited_for;  // folders
};

looks &the_looks() {
  static immortal<looks> all;
  return *all;
}

bool is_at_or_below(const fs::path &path, const fs::path &folder) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
         folder.end();
}

void make_and_look_into(const fs::path &folder) {
  std::error_code ignored;
  fs::create_directories(folder, ignored);
  // The standard library's iterator ends the process when it runs out of memory.
  DIR *const entries = ::opendir(folder.c_str());
  if (entries == nullptr) return;
  ::readdir(entries);
  ::closedir(entries);
}

// One look into a place, waited for from its bound on.
class one_look {
 public:
  explicit one_look(fs::path place) : place_(std::move(place)) {}
  void end() {
    const std::lock_guard hold(the_looks().lock);
    has_ended_ = true;
    if (is_waited_for_) the_looks().waited_for.erase(the_looks().waited_for.find(place_));
  }
  void pass_bound() {
    const std::lock_guard hold(the_looks().lock);
    if (has_ended_) return;
    the_looks().waited_for.insert(place_);
    is_waited_for_ = true;
  }

 private:
  const fs::path place_;
  bool has_ended_ = false;
  bool is_waited_for_ = false;
};

// Where there is no thread to look with, this one does.
bool answers(const fs::path &place, void (*look)(const fs::path &)) {
  if (folder_is_waited_for(place)) return false;
  const auto mine = std::make_shared<one_look>(place);
  try {
    const bool has_ended = ends_within(bound_of_look, [mine, place, look] {
      try {
        look(place);
      } catch (const std::exception &) {  // no memory for a name; it has answered
      }
      mine->end();
    });
    if (!has_ended) mine->pass_bound();
    return has_ended;
  } catch (const std::system_error &) {
    look(place);
    return true;
  }
}

}  // namespace

bool ends_within(std::chrono::milliseconds bound, std::function<void()> work) {
  const auto end = std::make_shared<ending>();
  const signals_blocked for_it;
  std::thread worker([end, work = std::move(work)]() mutable {
    work();
    work = nullptr;
    const std::lock_guard hold(end->lock);
    end->is_reached = true;
    end->reached.notify_all();
  });
  std::unique_lock hold(end->lock);
  const bool has_ended = end->reached.wait_for(hold, bound, [&] { return end->is_reached; });
  hold.unlock();
  if (has_ended) {
    worker.join();
  } else {
    worker.detach();
  }
  return has_ended;
}

bool folder_answers(const fs::path &folder) { return answers(folder, make_and_look_into); }

bool place_answers(const fs::path &path) {
  return answers(path, [](const fs::path &asked) {
    std::error_code ignored;
    static_cast<void>(fs::status(asked, ignored));
  });
}

bool folder_is_waited_for(const fs::path &folder) {
  const std::lock_guard hold(the_looks().lock);
  const auto &all = the_looks().waited_for;
  return std::any_of(all.begin(), all.end(),
                     [&](const fs::path &one) { return is_at_or_below(folder, one); });
}

}  // namespace lum_linux
