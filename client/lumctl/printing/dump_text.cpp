#include "printing/dump_text.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/module_text.h"
#include "printing/port_cells.h"
#include "printing/port_text.h"
#include "terminal/printable.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

// "0 to 3, 16"
std::string describe_numbers(const json &numbers) {
  std::string text;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const unsigned first = numbers[i].get<unsigned>();
    std::size_t last = i;
    while (last + 1 < numbers.size() && numbers[last + 1].get<unsigned>() == first + last + 1 - i) {
      ++last;
    }
    text += fmt::format("{}{}", text.empty() ? "" : ", ", first);
    if (last > i) text += fmt::format(" to {}", numbers[last].get<unsigned>());
    i = last;
  }
  return text;
}

std::string describe_extent(const json &decoded) {
  std::string text =
      fmt::format("{}, {}", printable(decoded.at("source").get<std::string>()),
                  lum_wording::counted(decoded.at("bytes").get<std::size_t>(), "byte"));
  if (decoded.at("lower_page").get<bool>()) text += ", the lower page";
  const json &pages = decoded.at("pages");
  if (!pages.empty()) {
    text += fmt::format(", {} {}", pages.size() == 1 ? "page" : "pages", describe_numbers(pages));
  }
  const auto behind = decoded.at("bytes_behind").get<std::size_t>();
  if (behind > 0) {
    text += fmt::format(", and {} behind the last page that there can be",
                        lum_wording::counted(behind, "byte"));
  }
  return text;
}

std::string describe_identifier(const json &identifier) {
  if (!identifier.is_object()) return "-";
  const unsigned code = identifier.at("code").get<unsigned>();
  if (identifier.at("name").is_null()) {
    return fmt::format("0x{:02x}, of which nothing is known here", code);
  }
  return fmt::format("0x{:02x} {}, {}", code, text_or_dash(identifier.at("name")),
                     text_or_dash(identifier.at("standard")));
}

std::string describe_firmware(const json &decoded) {
  const json &firmware = decoded.at("firmware");
  if (!firmware.is_object()) return "-";
  const std::string polled = text_or_dash(firmware.at("polled_text"));
  const std::string text = text_or_dash(firmware.at("text"));
  return text + describe_memory_map(decoded.at("new_memmap")) +
         (text == polled ? "" : fmt::format(", shown as {} once polled", polled));
}

cell checksum_cell(const json &check) {
  if (check.at("good") == true) return {"good", colour::good};
  if (check.at("blank") == true) return {"not checked, the page is all zeros", colour::warning};
  if (check.at("good").is_null())
    return {"not checked, the page is not all there", colour::warning};
  return {fmt::format("wrong: the sum is 0x{:02x}, the byte 0x{:02x}",
                      check.at("sum").get<unsigned>(), check.at("stored").get<unsigned>()),
          colour::bad};
}

// With what is checked, as the standard has it.
std::string describe_checksums(const json &decoded, const style &where) {
  const json &checks = decoded.at("checksums");
  if (checks.empty())
    return line("Checksum", "not checked, no standard is known for the identifier");
  std::string text;
  for (const json &check : checks) {
    const cell verdict = checksum_cell(check);
    text += line(
        text.empty() ? "Checksum" : "",
        fmt::format("{}, byte {} over {} to {}: {}", text_or_dash(check.at("name")),
                    check.at("byte").get<unsigned>(), check.at("first").get<unsigned>(),
                    check.at("last").get<unsigned>(), painted(where, verdict.text, verdict.paint)));
  }
  return text;
}

std::string describe_list(const std::string &title, const json &texts, const std::string &none) {
  std::string text;
  for (const json &one : texts) text += line(text.empty() ? title : "", text_or_dash(one));
  return text.empty() && !none.empty() ? line(title, none) : text;
}

}  // namespace

std::string describe_dump(const json &decoded, const style &where) {
  std::string text = line("Dump", describe_extent(decoded)) +
                     describe_list("Not there", decoded.at("missing"), "") +
                     line("Identifier", describe_identifier(decoded.at("identifier"))) +
                     describe_vendor(decoded.at("vendor")) +
                     line("Firmware", describe_firmware(decoded)) + describe_levels(decoded) +
                     describe_flag_lines(decoded, true) + describe_checksums(decoded, where) +
                     describe_list("Doubts", decoded.at("doubts"), "none");
  for (const json &sub_port : decoded.at("sub_ports")) {
    text += fmt::format("Sub-port {}:\n", sub_port.at("sub_port").get<unsigned>()) +
            describe_readings(sub_port, true);
  }
  return text;
}

}  // namespace lumctl
