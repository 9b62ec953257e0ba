// The archive of a support bundle; the only source that knows the library of archives.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/descriptor.h"
#include "support/bundle.h"

namespace lumctl {
namespace {

namespace fs = std::filesystem;

constexpr const char *top_folder = "lum-support/";
constexpr mode_t for_its_owner = 0600;

struct archive_end {
  void operator()(::archive *open) const { archive_write_free(open); }
};
struct entry_end {
  void operator()(::archive_entry *entry) const { archive_entry_free(entry); }
};

bool write_item(::archive *to, const bundle_item &item) {
  const std::unique_ptr<::archive_entry, entry_end> entry(archive_entry_new());
  if (!entry) return false;
  archive_entry_set_pathname(entry.get(), (top_folder + item.name).c_str());
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(item.content.size()));
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), for_its_owner);
  archive_entry_set_mtime(entry.get(), std::chrono::system_clock::to_time_t(item.when), 0);
  return archive_write_header(to, entry.get()) == ARCHIVE_OK &&
         archive_write_data(to, item.content.data(), item.content.size()) ==
             static_cast<la_ssize_t>(item.content.size());
}

// Empty, or why not.
std::string write_items(int file, const std::vector<bundle_item> &items) {
  const std::unique_ptr<::archive, archive_end> to(archive_write_new());
  if (!to) return "out of memory";
  const auto failed = [&to] {
    const char *why = archive_error_string(to.get());
    return std::string(why != nullptr ? why : "the archive cannot be written");
  };
  if (archive_write_add_filter_gzip(to.get()) != ARCHIVE_OK ||
      archive_write_set_format_pax_restricted(to.get()) != ARCHIVE_OK ||
      archive_write_open_fd(to.get(), file) != ARCHIVE_OK) {
    return failed();
  }
  for (const bundle_item &item : items) {
    if (item.is_there && !write_item(to.get(), item)) return failed();
  }
  return archive_write_close(to.get()) == ARCHIVE_OK ? "" : failed();
}

// A file that came meanwhile is left alone too, as far as the file system can do that.
int put_in_place(const fs::path &temporary, const fs::path &file, bool replace) {
  if (replace) return ::rename(temporary.c_str(), file.c_str());
  if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, file.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  return errno == EINVAL ? ::rename(temporary.c_str(), file.c_str()) : -1;
}

}  // namespace

std::string write_archive(const fs::path &file, bool replace,
                          const std::vector<bundle_item> &items) {
  const fs::path temporary = file.string() + ".tmp";
  const auto refuse = [](const fs::path &what, const std::string &why) {
    return fmt::format("{} cannot be written: {}", what.string(), why);
  };
  // What an interrupted attempt has left.
  ::unlink(temporary.c_str());
  const lum_client::descriptor open(::open(
      temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, for_its_owner));
  if (open.get() < 0) return refuse(temporary, std::strerror(errno));
  std::string why = write_items(open.get(), items);
  if (why.empty() && ::fsync(open.get()) != 0) why = std::strerror(errno);
  if (why.empty() && put_in_place(temporary, file, replace) != 0) {
    why = errno == EEXIST ? "it is there; --force replaces it" : std::strerror(errno);
  }
  if (why.empty()) return {};
  ::unlink(temporary.c_str());
  return refuse(file, why);
}

}  // namespace lumctl
