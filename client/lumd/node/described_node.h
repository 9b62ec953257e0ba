// The node's description as it holds now: as the driver was started, with what it has taken over
// since.
#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include "lum_linux/node_description.h"
#include "node/description_facts.h"

namespace lumd {

class described_node {
 public:
  // `running` may have another socket than the file says; `as_read` has what the file says.
  described_node(const lum_linux::node_description &running,
                 const lum_linux::node_description &as_read);

  // What is handed out stays as it is until the process ends, whatever is taken over later. Waits
  // for nothing.
  const lum_linux::node_description &now() const { return *now_.load(); }
  description_facts facts() const;

  // Takes over what a running driver can: names, units, and how the interface manager behaves.
  // Returns all that is different in `fresh`, what needs a restart too.
  std::vector<description_change> take_over(const lum_linux::node_description &fresh);

 private:
  std::atomic<const lum_linux::node_description *> now_;
  mutable std::mutex mutex_;  // one taking over at a time, and the facts
  description_facts facts_;
};

}  // namespace lumd
