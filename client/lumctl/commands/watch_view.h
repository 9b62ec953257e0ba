// What the live view shows, and what keys do to it.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands/port_feed.h"
#include "printing/ports_table.h"
#include "terminal/keys.h"
#include "terminal/terminal.h"

namespace lumctl {

class watch_view {
 public:
  watch_view(const port_selection &wanted, const ports_wish &wish, const style &output,
             bool has_keys);

  // Takes the answers as the picture to show, and the one before to find the changes by; or, where
  // there are none, why.
  void take(const port_news &news);

  // The driver has owed an answer for so long. Returns whether that shows.
  bool wait_for_answer(std::chrono::seconds time);

  // Whether the key does not end the view.
  bool press(const key &pressed);

  // The picture in this room. Moves the view where what it shows has become shorter.
  std::vector<std::string> lines(const room &available);

 private:
  struct sheet;

  bool is_old() const;
  void press_letter(const std::string &letter);
  void press_in_filter(const key &pressed);
  void move(long lines);
  void sort_by_next();

  std::string headline(const style &output) const;
  std::string keys_line() const;
  std::string old_words() const;
  std::string status_line(const sheet &drawn) const;
  sheet draw(const style &output) const;
  std::vector<std::string> window_of(const std::vector<std::string> &rows, std::size_t height);

  port_selection wanted_;
  ports_wish wish_;
  style output_;
  bool has_keys_;
  std::shared_ptr<const json> ports_;
  std::shared_ptr<const json> before_;
  std::string polling_;   // the line about the cycle, of the time of the answer
  std::string taken_at_;  // the time of day of the last answers
  std::string failure_;   // why there is none; empty while there are
  std::string failing_since_;
  std::chrono::seconds waiting_{0};
  std::optional<std::string> filter_before_;  // while a filter is being typed
  long first_row_ = 0;
  long last_row_ = 0;  // behind the last one in sight
  long page_ = 1;      // rows that were shown last
};

}  // namespace lumctl
