// lum-module-image: makes module images, changes bytes of them and shows them.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "lum_linux/image.h"
#include "lum_linux/module_memory.h"
#include "wording/numbers.h"

namespace {

namespace fs = std::filesystem;
using namespace lum_linux;

constexpr int ok = 0;
constexpr int failed = 1;
constexpr int bad_usage = 2;

int complain(const std::string &message) {
  std::fputs(("lum-module-image: " + message + "\n").c_str(), stderr);
  return failed;
}

int make_image(const fs::path &description, const fs::path &output) {
  const image_result result = read_module_image(description);
  for (const auto &problem : result.problems)
    std::fputs((to_string(problem) + "\n").c_str(), stderr);
  if (!result.image) return failed;
  std::string error;
  return write_module_image(*result.image, output, error) ? ok : complain(error);
}

std::optional<uint32_t> parse_number(const std::string &text, uint32_t max) {
  char *end = nullptr;
  errno = 0;
  const unsigned long value = std::strtoul(text.c_str(), &end, 0);
  const bool is_number = !text.empty() && text[0] >= '0' && text[0] <= '9' && *end == '\0';
  if (!is_number || errno != 0 || value > max) return {};
  return static_cast<uint32_t>(value);
}

int poke(const std::vector<std::string> &arguments) {
  constexpr std::array<const char *, 3> names = {"PAGE", "OFFSET", "VALUE"};
  std::array<uint32_t, 3> numbers{};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto number = parse_number(arguments[i + 1], 255);
    if (!number) {
      complain(fmt::format("{} is \"{}\", expected a number from 0 to 255, 0x for hexadecimal",
                           names[i], arguments[i + 1]));
      return bad_usage;
    }
    numbers[i] = *number;
  }
  const auto memory = make_file_memory(arguments[0]);
  const cerrno rc = memory->write(numbers[0], numbers[1], static_cast<uint8_t>(numbers[2]));
  if (rc == module_ok) return ok;
  if (rc == module_failing) {
    return complain(fmt::format("{}: no file with a byte at page {}, offset {}", arguments[0],
                                numbers[0], numbers[1]));
  }
  return complain(
      fmt::format("{}: {}", arguments[0],
                  rc == module_absent ? "no such file" : std::strerror(static_cast<int>(rc))));
}

void dump_half_page(const std::string &title, uint32_t first_offset,
                    const std::array<uint8_t, module_page_size> &bytes) {
  fmt::print("{}\n", title);
  for (std::size_t line = 0; line < bytes.size(); line += 16) {
    std::string hex;
    std::string text;
    for (std::size_t i = line; i < line + 16; ++i) {
      hex += fmt::format("{:02x} ", bytes[i]);
      text += bytes[i] >= 0x20 && bytes[i] <= 0x7E ? static_cast<char>(bytes[i]) : '.';
    }
    fmt::print("{:4}  {} {}\n", first_offset + line, hex, text);
  }
}

int dump(const fs::path &file) {
  std::error_code code;
  const std::uintmax_t size = fs::file_size(file, code);
  if (code) return complain(fmt::format("{}: {}", file.string(), code.message()));
  if (size < module_page_size) {
    return complain(fmt::format("{}: {} bytes, expected at least the {} of the lower page",
                                file.string(), size, module_page_size));
  }
  const auto memory = make_file_memory(file);
  const auto halves = std::min<std::uintmax_t>(size / module_page_size, module_max_pages + 1);
  std::array<uint8_t, module_page_size> bytes{};
  for (uint32_t half = 0; half < halves; ++half) {
    const bool is_lower = half == 0;
    const cerrno rc = memory->read(is_lower ? 0 : half - 1, is_lower ? 0 : module_page_size, bytes);
    if (rc != module_ok) {
      return complain(fmt::format("{}: {}", file.string(), std::strerror(static_cast<int>(rc))));
    }
    dump_half_page(is_lower ? "lower page" : fmt::format("page {}", half - 1),
                   is_lower ? 0 : module_page_size, bytes);
  }
  const auto rest = size - halves * module_page_size;
  if (rest > 0)
    fmt::print("and {} behind the last whole page\n", lum_wording::counted(rest, "byte"));
  return ok;
}

int run(int argc, char **argv) {
  CLI::App app("Makes module images from descriptions, changes bytes of them and shows them.");
  std::vector<std::string> files;
  std::vector<std::string> poked;
  std::string dumped;
  app.add_option("files", files, "DESCRIPTION OUTPUT: make the image OUTPUT of a description")
      ->expected(2)
      ->type_name("DESCRIPTION OUTPUT");
  app.add_option("--poke", poked, "Set one byte of an image")
      ->expected(4)
      ->type_name("FILE PAGE OFFSET VALUE");
  app.add_option("--dump", dumped, "Show an image")->type_name("FILE");
  app.footer("Offsets 0 to 127 are the lower page, whatever the page; 128 to 255 the page itself.");
  try {
    app.parse(argc, argv);
    const int tasks = !files.empty() + !poked.empty() + !dumped.empty();
    if (tasks != 1)
      throw CLI::ValidationError("expected one of DESCRIPTION OUTPUT, --poke, --dump");
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? ok : bad_usage;
  }
  if (!poked.empty()) return poke(poked);
  return dumped.empty() ? make_image(files[0], files[1]) : dump(dumped);
}

}  // namespace

int main(int argc, char **argv) try {
  return run(argc, argv);
} catch (const std::exception &error) {
  std::fprintf(stderr, "lum-module-image: %s\n", error.what());
  return failed;
}
