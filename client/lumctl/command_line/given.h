// What was typed for a command's arguments and options, by their names.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace lumctl {

// What stands between the commas of a list; one part at least.
inline std::vector<std::string> parts_of(const std::string &list) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t comma = list.find(','); comma != std::string::npos;
       comma = list.find(',', start)) {
    parts.push_back(list.substr(start, comma - start));
    start = comma + 1;
  }
  parts.push_back(list.substr(start));
  return parts;
}

class given {
 public:
  using texts_type = std::vector<std::string>;

  void put_flag(const std::string &name) { values_.emplace(name, texts_type{}); }
  void put_texts(const std::string &name, texts_type texts) { put(name, std::move(texts)); }
  void put_whole(const std::string &name, std::uint32_t value) { put(name, value); }
  void put_real(const std::string &name, double value) { put(name, value); }

  // What has two values, or nothing: some options may stand in more than one place.
  const std::string &given_twice() const { return given_twice_; }

  bool has(std::string_view name) const { return values_.find(name) != values_.end(); }

  // What was not given is empty, or what stands for it.
  texts_type texts(std::string_view name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? texts_type{} : std::get<texts_type>(found->second);
  }
  std::string text(std::string_view name, const std::string &unless_given = {}) const {
    const texts_type found = texts(name);
    return found.empty() ? unless_given : found.front();
  }
  std::uint32_t whole(std::string_view name, std::uint32_t unless_given = 0) const {
    const auto found = values_.find(name);
    return found == values_.end() ? unless_given : std::get<std::uint32_t>(found->second);
  }
  double real(std::string_view name, double unless_given = 0) const {
    const auto found = values_.find(name);
    return found == values_.end() ? unless_given : std::get<double>(found->second);
  }

 private:
  using value_type = std::variant<texts_type, std::uint32_t, double>;

  void put(const std::string &name, value_type value) {
    if (!values_.emplace(name, std::move(value)).second) given_twice_ = name;
  }

  std::map<std::string, value_type, std::less<>> values_;
  std::string given_twice_;
};

}  // namespace lumctl
