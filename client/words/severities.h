// How bad something is, as monitoring plugins tell it.
#pragma once

#include "words/names.h"

namespace lum_words {

// The numbers are the exit statuses of such plugins.
enum class severity { ok = 0, warning = 1, critical = 2, unknown = 3 };

struct named_severity {
  severity id;
  std::string_view name;
};

inline constexpr std::array<named_severity, 4> severities = {{
    {severity::ok, "ok"},
    {severity::warning, "warning"},
    {severity::critical, "critical"},
    {severity::unknown, "unknown"},
}};

}  // namespace lum_words
