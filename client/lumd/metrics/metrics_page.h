// One page of metrics in the text format of Prometheus.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace lumd {

// A label by itself. The name is a literal; the value may hold any bytes.
struct metric_label {
  std::string_view name;
  std::string_view value;
};

// The labels of a sample as they stand on the page, in the order of their names.
class metric_labels {
 public:
  metric_labels() = default;
  metric_labels(std::string_view name, std::string_view value) { add({name, value}); }

  // One more. A name comes once.
  void add(const metric_label &label);
  metric_labels with(std::string_view name, std::string_view value) const {
    metric_labels more = *this;
    more.add({name, value});
    return more;
  }

  // What stands before the place of a label of that name, and behind it.
  std::pair<std::string_view, std::string_view> around(std::string_view name) const;
  const std::string &text() const { return text_; }

 private:
  using place_of_name = std::pair<std::string_view, std::size_t>;

  std::string text_;                   // a="1",b="2"
  std::vector<place_of_name> places_;  // in the text
};

// A page is made for each scrape: everything shown is kept elsewhere. Metrics and their samples
// stand in the order in which they were added.
class metrics_page {
 public:
  static constexpr const char *content_type = "text/plain; version=0.0.4; charset=utf-8";

  // Add one sample. Names and helps are literals; a name has one help text and is always added the
  // same way. Counters end in _total and are not below 0; a fact ends in _info and is told by its
  // labels alone.
  void gauge(std::string_view name, std::string_view help, const metric_labels &labels,
             double value) {
    add(name, help, "gauge", labels, value);
  }
  void counter(std::string_view name, std::string_view help, const metric_labels &labels,
               double value) {
    add(name, help, "counter", labels, value);
  }
  // One whose last label is another for each sample.
  void gauge(std::string_view name, std::string_view help, const metric_labels &labels,
             const metric_label &last, double value);
  void fact(std::string_view name, std::string_view help, const metric_labels &labels) {
    gauge(name, help, labels, 1);
  }

  std::string text() const;

 private:
  void add(std::string_view name, std::string_view help, std::string_view type,
           const metric_labels &labels, double value);
  // The family's text, with the name of a new sample at its end.
  std::string &begin(std::string_view name, std::string_view help, std::string_view type);

  std::vector<std::string> families_;                         // each with its help and type
  std::unordered_map<std::string_view, std::size_t> places_;  // by name
};

}  // namespace lumd
