// Texts, copies, names, thread ids, the log and the deadlock monitor: cerr.h, bounded_copy.h,
// imc.h, tern.h, ptd.h.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "bounded_copy.h"
#include "cerr.h"
#include "check.h"
#include "chkpt.h"
#include "imc.h"
#include "ptd.h"
#include "tern.h"

namespace conformance {
namespace {

void every_result_has_a_text() {
  start_platform();
  for (uint32_t rc = 0; rc < 200; ++rc) {
    require(cerr_strerror(rc) != nullptr, "cerr_strerror(%u) is null", rc);
  }
  for (const uint32_t rc : {LUM_IM_ELEMENT_BENIGN, CHKPT_ALREADY_INITIALISED, 0xFFFFFFFFu}) {
    require(cerr_strerror(rc) != nullptr, "cerr_strerror(0x%x) is null", rc);
  }
}

void a_copy_is_terminated() {
  start_platform();
  char text[8];
  std::memset(text, '#', sizeof text);
  require(strncpy_s(text, sizeof text, "optics", 7) == 0, "a text that fits is refused");
  require(std::memcmp(text, "optics", 7) == 0, "\"optics\" became \"%.8s\"", text);
  std::memset(text, '#', sizeof text);
  require(strncpy_s(text, sizeof text, "optics", 3) == 0, "a part of a text is refused");
  require(std::memcmp(text, "opt", 4) == 0, "three characters of \"optics\" became \"%.8s\"", text);
}

void a_copy_that_does_not_fit_is_refused() {
  start_platform();
  char text[8];
  std::memset(text, '#', sizeof text);
  require(strncpy_s(text, sizeof text, "optics", sizeof text) == EINVAL,
          "a count of the destination's size is not refused with 22");
  require(text[0] == '\0', "the destination is not empty after the refusal");
  require(strncpy_s(nullptr, sizeof text, "optics", 3) == EINVAL, "a null destination is accepted");
  require(strncpy_s(text, sizeof text, nullptr, 3) == EINVAL, "a null source is accepted");
}

// The source ends where nothing can be read behind it.
void a_copy_reads_no_more_than_its_count() {
  start_platform();
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto *pages = static_cast<char *>(
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  require(pages != MAP_FAILED && mprotect(pages + page, page, PROT_NONE) == 0, "no memory");
  std::memset(pages, 'x', page);
  char text[8];
  require(strncpy_s(text, sizeof text, pages + page - 4, 4) == 0, "a text without NUL is refused");
  require(std::strcmp(text, "xxxx") == 0, "four characters became \"%.8s\"", text);
}

void names_are_taken_apart() {
  start_platform();
  imc_ifname_info info = {};
  require(imc_ifname_parse("Ots0_3_1_7_1", 0, &info) == 0, "Ots0_3_1_7_1 is refused");
  require(std::strcmp(info.type, "Ots") == 0, "its type is \"%.32s\"", info.type);
  require(info.rack == 0 && info.port == 7, "rack %u and port %u of Ots0_3_1_7_1", info.rack,
          info.port);
  require(info.sub_port_valid == 1 && info.sub_port == 1, "its sub-port is not told");
  uint32_t rack = 99, slot = 99, instance = 99;
  require(nodeid_extract_slot_fields(info.rack, info.slot, &rack, &slot) == 0, "no slot for it");
  nodeid_inst_to_SPAid(info.instance, &instance);
  require(rack == 0 && slot == 3 && instance == 1, "rack %u, slot %u and instance %u of it", rack,
          slot, instance);
}

void a_name_may_lack_its_sub_port() {
  start_platform();
  imc_ifname_info info = {};
  require(imc_ifname_parse("Ots0_3_1_7", 0, &info) == 0, "Ots0_3_1_7 is refused");
  require(info.sub_port_valid == 0, "it is said to have sub-port %u", info.sub_port);
}

void what_is_no_name_is_refused() {
  start_platform();
  for (const char *name : {static_cast<const char *>(nullptr), "", "Ots", "Ots0_3", "0_3_1_7_1"}) {
    imc_ifname_info info = {};
    errno = 0;
    const cerrno rc = imc_ifname_parse(name, 0, &info);
    require(rc != 0, "\"%s\" is accepted", name == nullptr ? "(null)" : name);
    require(errno != 0, "errno is 0 for \"%s\"", name == nullptr ? "(null)" : name);
  }
}

void threads_have_ids_of_their_own() {
  start_platform();
  const int32_t mine = tern_gettid();
  int32_t others = mine;
  std::thread([&] { others = tern_gettid(); }).join();
  require(mine == tern_gettid(), "one thread has two ids");
  require(mine != others, "two threads have the id %d", mine);
}

void the_log_and_the_monitor_take_what_comes() {
  start_platform();
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  tern_syslog(0, "conformance test: %s %d\n", "a line", 1);
  tern_syslog(0, "conformance test: a line without an end");
  ptd_set_mutex_block(&mutex, "conformance", 1);
  ptd_unset_mutex_block(&mutex);
}

}  // namespace

std::vector<check> text_checks() {
  return {{"texts.every_result_has_one", every_result_has_a_text},
          {"texts.copies_are_terminated", a_copy_is_terminated},
          {"texts.copies_that_do_not_fit_are_refused", a_copy_that_does_not_fit_is_refused},
          {"texts.copies_read_no_more_than_their_count", a_copy_reads_no_more_than_its_count},
          {"names.are_taken_apart", names_are_taken_apart},
          {"names.may_lack_their_sub_port", a_name_may_lack_its_sub_port},
          {"names.that_are_none_are_refused", what_is_no_name_is_refused},
          {"system.threads_have_ids_of_their_own", threads_have_ids_of_their_own},
          {"system.log_and_monitor_take_what_comes", the_log_and_the_monitor_take_what_comes}};
}

}  // namespace conformance
