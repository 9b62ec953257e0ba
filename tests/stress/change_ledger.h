// Keeps book of what a driver was asked and has acknowledged, and judges what it comes back with.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "crash_records.h"

namespace stress {

struct ledger_counts {
  uint64_t asked = 0;
  uint64_t acknowledged = 0;
  uint64_t refused = 0;    // answered with another result than 0
  uint64_t recovered = 0;  // sub-ports that came back and were judged
  uint64_t lost = 0;       // came back older than acknowledged
  uint64_t torn = 0;       // came back as it never was
  uint64_t not_in_module = 0;
};

class change_ledger {
 public:
  void note(const crash_record &record);
  // Compares the module files with what the driver, ready, came back with.
  void judge_modules(const std::filesystem::path &folder);

  const ledger_counts &counts() const { return counts_; }
  // What was wrong, the first few of it.
  const std::vector<std::string> &complaints() const { return complaints_; }

 private:
  struct sub_port_book {
    lum_port_cfg saved = {};             // as last acknowledged
    std::vector<lum_port_cfg> possible;  // later states that may have been saved, oldest first
    std::vector<lum_port_cfg> history;   // every state there was before `saved`
    lum_port_cfg recovered = {};
  };

  void judge(uint32_t port, uint32_t sub_port, const lum_port_cfg &cfg);
  void complain(const std::string &text);

  std::map<std::pair<uint32_t, uint32_t>, sub_port_book> books_;
  ledger_counts counts_;
  std::vector<std::string> complaints_;
};

}  // namespace stress
