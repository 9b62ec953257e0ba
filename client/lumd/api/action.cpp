#include "api/action.h"

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include "views/action_view.h"

namespace lumd {
namespace {

constexpr unsigned most_at_once = 32;
std::atomic<unsigned> under_way{0};

// One of the actions under way.
class place {
 public:
  place() : taken_(under_way.fetch_add(1) < most_at_once) {}
  ~place() { --under_way; }
  place(const place &) = delete;
  place &operator=(const place &) = delete;
  bool taken() const { return taken_; }

 private:
  bool taken_;
};

}  // namespace

api_reply act(std::chrono::milliseconds bound, std::function<api_reply()> work) {
  const auto held = std::make_shared<place>();
  if (!held->taken()) return refuse(503, "too many actions are waiting for modules already");
  std::packaged_task<api_reply()> task([held, work = std::move(work)] { return work(); });
  std::future<api_reply> reply = task.get_future();
  std::thread(std::move(task)).detach();
  if (reply.wait_for(bound) == std::future_status::ready) return reply.get();
  json body = {{"result", nullptr}};
  conclude(body, false, "a module or the disk holds it up; it goes on");
  return {202, std::move(body)};
}

}  // namespace lumd
