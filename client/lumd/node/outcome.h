// What becomes of something that is asked of the node: it is refused, or it is done and reported.
#pragma once

#include <string>
#include <utility>
#include <variant>

#include "cerr.h"

namespace lumd {

enum class refusal_kind {
  wrong,     // it makes no sense, whatever the node is doing
  unknown,   // the node does not have what it names
  conflict,  // not in the state that the node is in
};

struct refusal {
  refusal_kind kind = refusal_kind::wrong;
  std::string reason;
};

// What the report of everything that changes something begins with.
struct action_report {
  cerrno rc = 0;         // what the library or the platform answered
  std::string missing;   // why not everything asked for has come about; empty when it has
  bool pending = false;  // nothing stands against it but that it has not been answered yet
};

template <typename Report>
class outcome {
 public:
  outcome(refusal refused) : what_(std::move(refused)) {}
  outcome(Report report) : what_(std::move(report)) {}

  // Whether it was done.
  explicit operator bool() const { return std::holds_alternative<Report>(what_); }

  // The report, once it was done, and the refusal otherwise.
  const Report &operator*() const { return std::get<Report>(what_); }
  const Report *operator->() const { return &std::get<Report>(what_); }
  const refusal &refused() const { return std::get<refusal>(what_); }

 private:
  std::variant<refusal, Report> what_;
};

}  // namespace lumd
