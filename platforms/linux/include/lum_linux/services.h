// How the platform's owner starts, steers and looks at the services behind the service headers.
// What the services offer to the library stands in those headers; nothing here is called by it.
//
// Unless said otherwise every call may come from any thread, waits for nothing but a short lock,
// and never throws for bad input. Results of type cerrno are 0 or a POSIX error number.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cerr.h"
#include "event_manager.h"

namespace lum_linux {

// ---- Event managers (event_manager.h) ----

// Starts an event manager with a thread of its own, of which the first 15 characters of `name` are
// the name. Returns its handle, or 0 when there is no memory or thread to be had.
event_manager event_manager_create(const std::string &name);

// Ends an event manager: pulses still queued are dropped and the handle is unknown from now on.
// Waits up to `bound` for a handler that is running; returns false when it had to be left behind,
// and for an unknown handle. On the manager's own thread it asks for the end without waiting.
bool event_manager_destroy(event_manager manager,
                           std::chrono::milliseconds bound = std::chrono::seconds(2));

// Waits until no pulse is queued and no handler runs; false when `bound` passed before, for an
// unknown handle and on the manager's own thread.
bool event_manager_drain(event_manager manager, std::chrono::milliseconds bound);

// ---- Checkpoint store (chkpt.h) ----

// Names the store's file, whose folder is created when it is not there. To be called before
// chkpt_init. Returns 0, 22 for an empty path, or 16 when a store is open.
cerrno checkpoints_set_path(const std::filesystem::path &file);

// Closes the store. The path is kept; table and iterator handles are unknown from now on. Waits for
// the disk.
void checkpoints_close();

struct checkpoint_status {
  std::filesystem::path file;
  bool open = false;
  bool restart = false;             // the store of an earlier process was found
  std::filesystem::path set_aside;  // what a store that could not be used was renamed to, or empty
  std::string set_aside_reason;
  uint64_t entries = 0;      // in all tables
  uint64_t writes = 0;       // durable changes since the store was opened
  uint64_t failures = 0;     // calls that the store could not carry out since then
  std::string last_failure;  // text of the latest, or empty
};
// Waits for the disk.
checkpoint_status checkpoints_status();

// ---- Traces (ctrace.h) ----

// Says where the channels opened with `key` keep their files, <directory>/<channel>.log and one
// older file beside it. The folder is created with the first channel. Returns 0 or 22.
cerrno traces_set_directory(const std::string &key, const std::filesystem::path &directory);

// Turns a channel off and on again, by its name. Returns 0, 2 for a channel that is not open, or 1
// when its run-time configuration has not been enabled.
cerrno traces_enable(std::string_view channel, bool on);

struct trace_channel_status {
  std::string name;
  std::filesystem::path file;
  uint32_t size = 0;    // bytes that both files together stay within
  uint32_t points = 0;  // of the caller's catalogue
  std::string digest;   // of the caller's catalogue
  bool enabled = true;
  uint64_t lines = 0;
  uint64_t failures = 0;  // lines that could not be written
};
std::vector<trace_channel_status> traces_status();

// ---- System log (tern.h) and deadlock-monitor marks (ptd.h) ----

// Where lines for the system log go instead of syslog(3); an empty function goes back to it. The
// sink runs on the logging thread and must not log. Returns once an earlier sink is not running.
void system_log_set_sink(std::function<void(std::string_view line)> sink);

// Writes one line to the system log, or to the sink.
void system_log(std::string_view line);

struct blocked_thread {
  int32_t tid = 0;
  std::string function;
  uint32_t line = 0;
  const void *mutex = nullptr;  // not to be used
  std::chrono::steady_clock::time_point since;
};
// The threads that are waiting for a mutex now, the longest wait first.
std::vector<blocked_thread> blocked_threads();

// ---- Create replies (imca.h) ----

struct create_reply {
  std::optional<uint32_t> ifhandle;        // required by the reader; absent: left out
  std::optional<std::string> description;  // up to 1,024 bytes without a NUL; longer is cut
  bool truncated = false;                  // leave the last byte out
};
// Encodes a reply as wiredef_icpe_ext_intf_create_reply_data_decode_ext reads it. May throw
// std::bad_alloc.
std::vector<uint8_t> encode_create_reply(const create_reply &reply);

// ---- Test events (test_event.h) ----

// Runs the handler of a test on the calling thread; one at a time in the whole process. Waits for
// a handler that another thread is running. Returns 0, 2 for an unknown suite or test, or 35 when
// called from a handler.
cerrno test_event_send(const std::string &suite, uint32_t test_id, const std::string &text);

struct test_suite {
  std::string name;
  std::vector<uint32_t> test_ids;
};
std::vector<test_suite> test_suites();

// ---- Entity-agent service (ea_server.h) ----

enum class ea_operation : uint32_t { resync_end, create, update, get_info, remove };

struct ea_entry {
  std::string ifname;  // up to 63 bytes without a NUL
  uint32_t ifhandle = 0;
  uint8_t admin = 0;
  uint8_t state_ready = 0;
};

// Hands a batch to the registered server, on the calling thread; one at a time. `operation` may be
// a number that ea_operation does not name. `served` receives whether the reply entry of each
// request entry was set. Returns 0, 107 when no server is registered, 22 for more than 4,096
// entries, a name that does not fit or one of a port without its sub-port (Ots0_1_0_3, over which
// the library would end the process), 35 when called from the server, or 12.
cerrno ea_run(uint32_t operation, std::span<const ea_entry> entries, std::vector<bool> &served);

// Tells the server that an entity agent has connected. Returns its code, 107 or 35.
cerrno ea_connect();

struct ea_registration {
  std::string name;
  event_manager manager = 0;
  int32_t restart = 0;
};
std::optional<ea_registration> ea_registered();

// Forgets the server. Waits for a batch that is running, but not when called from it.
void ea_unregister();

}  // namespace lum_linux
