// The shells' completion files, put into lumctl when it is built.
#pragma once

namespace lumctl {

extern const char *const bash_completion;
extern const char *const zsh_completion;
extern const char *const fish_completion;

}  // namespace lumctl
