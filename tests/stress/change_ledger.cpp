#include "change_ledger.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace stress {
namespace {

constexpr std::size_t most_complaints = 20;
constexpr std::size_t longest_history = 20000;

bool same(const lum_port_cfg &a, const lum_port_cfg &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

bool holds(const std::vector<lum_port_cfg> &states, const lum_port_cfg &state) {
  return std::any_of(states.begin(), states.end(),
                     [&](const lum_port_cfg &each) { return same(each, state); });
}

lum_port_cfg changed(lum_port_cfg cfg, const crash_record &ask) {
  cfg.changed_bits |= ask.changed_bits;
  if (ask.changed_bits & LUM_CHANGE_THRESHOLD) cfg.threshold = ask.cfg.threshold;
  if (ask.changed_bits & LUM_CHANGE_P2_SETTING) cfg.p2_setting = ask.cfg.p2_setting;
  if (ask.changed_bits & LUM_CHANGE_MODE) cfg.mode = ask.cfg.mode;
  if (ask.changed_bits & LUM_CHANGE_SETTINGS) {
    cfg.setting_a = ask.cfg.setting_a;
    cfg.setting_b = ask.cfg.setting_b;
    cfg.enable_flag = ask.cfg.enable_flag;
    cfg.sub1_flag = ask.cfg.sub1_flag;
  }
  return cfg;
}

std::string text_of(const lum_port_cfg &cfg) {
  std::string text = "[";
  for (const uint64_t value :
       {uint64_t{cfg.threshold}, uint64_t{cfg.p2_setting}, uint64_t{cfg.setting_a},
        uint64_t{cfg.setting_b}, uint64_t{cfg.enable_flag}, uint64_t{cfg.mode},
        uint64_t{cfg.sub1_flag}, cfg.changed_bits}) {
    text += std::to_string(value) + " ";
  }
  text.back() = ']';
  return text;
}

// A module's memory, and what a sub-port's configuration makes of it.
class module_image_check {
 public:
  module_image_check(const std::filesystem::path &file, bool new_map) : new_map_(new_map) {
    std::ifstream in(file, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(in), {});
  }

  bool holds(uint32_t sub_port, const lum_port_cfg &cfg) const {
    const bool first = sub_port == 0;
    bool good = true;
    if (cfg.changed_bits & LUM_CHANGE_P2_SETTING) {
      good = good && word(2, first ? 194 : 178) == cfg.p2_setting * 10;
    }
    if (cfg.changed_bits & LUM_CHANGE_THRESHOLD) {
      good = good && word(2, first ? 144 : 152) == cfg.threshold * 10 + 100 &&
             word(2, first ? 146 : 154) == cfg.threshold * 10;
    }
    if (cfg.changed_bits & LUM_CHANGE_SETTINGS) {
      good = good && layout_word(first ? 134 : 129) == cfg.setting_a * 10 &&
             layout_word(first ? 136 : 131) == cfg.setting_b * 10 &&
             layout_byte(first ? 147 : 146) == (cfg.enable_flag & 1) &&
             (first || layout_byte(150) == (cfg.sub1_flag & 1));
    }
    if (cfg.changed_bits & LUM_CHANGE_MODE) {
      good = good && layout_byte(first ? 133 : 128) == (cfg.mode == 3 ? 2u : 1u);
    }
    return good;
  }

 private:
  uint32_t byte(uint32_t page, uint32_t offset) const {
    const std::size_t place = std::size_t{128} * page + offset;
    return place < bytes_.size() ? bytes_[place] : 0xFFFFFFFF;
  }
  uint32_t word(uint32_t page, uint32_t offset) const {
    return byte(page, offset) << 8 | byte(page, offset + 1);
  }
  uint32_t layout_byte(uint32_t offset) const {
    return new_map_ ? byte(1, offset + 64) : byte(3, offset);
  }
  uint32_t layout_word(uint32_t offset) const {
    return layout_byte(offset) << 8 | layout_byte(offset + 1);
  }

  std::vector<uint8_t> bytes_;
  bool new_map_;
};

}  // namespace

void change_ledger::note(const crash_record &record) {
  sub_port_book &book = books_[{record.port, record.sub_port}];
  const lum_port_cfg latest = book.possible.empty() ? book.saved : book.possible.back();
  switch (record.event) {
    case crash_event::recovered:
      return judge(record.port, record.sub_port, record.cfg);
    case crash_event::asked:
      ++counts_.asked;
      book.possible.push_back(changed(latest, record));
      return;
    case crash_event::answered:
      if (record.result != 0) {
        ++counts_.refused;
        return;
      }
      ++counts_.acknowledged;
      book.history.push_back(book.saved);
      book.history.insert(book.history.end(), book.possible.begin(), book.possible.end() - 1);
      if (book.history.size() > longest_history) {
        book.history.erase(book.history.begin(), book.history.end() - longest_history / 2);
      }
      book.saved = latest;
      book.possible.clear();
      return;
    case crash_event::ready:
      return;
  }
}

void change_ledger::judge(uint32_t port, uint32_t sub_port, const lum_port_cfg &cfg) {
  sub_port_book &book = books_[{port, sub_port}];
  ++counts_.recovered;
  if (!same(cfg, book.saved) && !holds(book.possible, cfg)) {
    const bool was = same(cfg, lum_port_cfg{}) || holds(book.history, cfg);
    ++(was ? counts_.lost : counts_.torn);
    complain(std::string(was ? "lost" : "torn") + ": port " + std::to_string(port) + " sub-port " +
             std::to_string(sub_port) + " came back with " + text_of(cfg) + ", acknowledged " +
             text_of(book.saved) +
             (book.possible.empty() ? "" : ", asked " + text_of(book.possible.back())));
  }
  book.history.push_back(book.saved);
  book.saved = cfg;
  book.recovered = cfg;
  book.possible.clear();
}

void change_ledger::judge_modules(const std::filesystem::path &folder) {
  for (const port_place &place : places_of(crash_shape(folder))) {
    const module_image_check module(module_file(folder, place, ".eeprom"), place.port % 2 == 1);
    for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
      const lum_port_cfg &cfg = books_[{place.port, s}].recovered;
      if (module.holds(s, cfg)) continue;
      ++counts_.not_in_module;
      complain("port " + std::to_string(place.port) + " sub-port " + std::to_string(s) +
               ": its module does not hold " + text_of(cfg));
    }
  }
}

void change_ledger::complain(const std::string &text) {
  if (complaints_.size() < most_complaints) complaints_.push_back(text);
}

}  // namespace stress
