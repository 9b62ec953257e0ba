// The text formats that the metrics go out in, and which of them a scraper would rather have.
#pragma once

#include <string_view>

namespace lumd {

enum class metrics_format { prometheus, openmetrics };

// The format for an Accept header: OpenMetrics when it is named and nothing else is liked better,
// and the Prometheus text format otherwise, whatever the header says.
metrics_format metrics_format_for(std::string_view accept);

// The content type that the text goes out with.
constexpr const char *content_type(metrics_format format) {
  return format == metrics_format::openmetrics
             ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
             : "text/plain; version=0.0.4; charset=utf-8";
}

}  // namespace lumd
