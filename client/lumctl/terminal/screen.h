// The whole terminal, for a view that is drawn over and over.
#pragma once

#include <string>

namespace lumctl {

// Takes the terminal's alternate screen for as long as it lives, and gives the terminal back as it
// was, also when the process is interrupted or ended: an interrupt then ends the process with
// status 0. There is one at a time.
class screen {
 public:
  screen();
  ~screen();
  screen(const screen &) = delete;
  screen &operator=(const screen &) = delete;

  // Draws the text from the top, cut to the terminal's height.
  void draw(const std::string &text);

  // Whether the terminal's size has changed since it was asked last.
  bool resized();
};

// Whether standard output is a terminal that can be drawn on.
bool can_draw();

}  // namespace lumctl
