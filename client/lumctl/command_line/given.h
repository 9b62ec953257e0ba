// What was typed for a command's arguments and options, by their names.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace lumctl {

class given {
 public:
  using texts_type = std::vector<std::string>;

  void put_flag(const std::string &name) { put_texts(name, {}); }
  void put_texts(const std::string &name, texts_type texts) { values_[name] = std::move(texts); }
  void put_whole(const std::string &name, std::uint32_t value) { values_[name] = value; }
  void put_real(const std::string &name, double value) { values_[name] = value; }

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
  std::map<std::string, std::variant<texts_type, std::uint32_t, double>, std::less<>> values_;
};

}  // namespace lumctl
