// The whole terminal, for a view that is drawn over and over.
#pragma once

#include <string>
#include <vector>

namespace lumctl {

// Takes the terminal's alternate screen, and its keys as they are pressed, for as long as it lives,
// and gives the terminal back as it was, also when the process is interrupted, stopped, ended or
// crashes: an interrupt then ends the process with status 0, and a process that goes on takes the
// terminal again. There is one at a time, and the thread that has it is the one to get signals.
class screen {
 public:
  screen();
  ~screen();
  screen(const screen &) = delete;
  screen &operator=(const screen &) = delete;

  // Draws lines from the top, none of which is wider than the terminal, nor are they more than it
  // has.
  void draw(const std::vector<std::string> &lines);

  // Whether what was drawn last is not what the terminal shows any more: its size has changed, or
  // the process was stopped.
  bool is_stale();
};

// Whether standard output is a terminal that can be drawn on.
bool can_draw();

// Whether standard output is a terminal at all.
bool is_output_seen();

// Whether standard input is one, which keys are pressed on.
bool has_keys();

}  // namespace lumctl
