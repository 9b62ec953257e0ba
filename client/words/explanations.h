// What a name on a screen means, what to look at, and what to do.
#pragma once

#include <array>
#include <string_view>

namespace lum_words {

struct explanation {
  std::string_view name;
  std::string_view meaning;
  std::string_view look_at;
  std::string_view remedy;
};

inline constexpr std::array<explanation, 40> explanations = {{
    // The states of a port.
    {"absent", "The port is in the description and has not been created, or has been deleted.",
     "the driver's log: was its slot brought up? lumctl show ports --all",
     "lumctl port create SLOT"},
    {"coming up",
     "The port was created, and the interface manager has not confirmed both of its controllers; "
     "or the identity of a module that has just come is being read.",
     "lumctl im show: is it held or slow, has it refused, dropped or failed a batch?",
     "take the reason away (lumctl im behave for faults that were asked for), then lumctl replay"},
    {"deleting",
     "The deletion was asked for, and the interface manager has not confirmed it. The port is not "
     "polled.",
     "lumctl im show", "lumctl port delete NAME once more"},
    {"empty", "There is no module in the cage. That is no fault.",
     "lumctl show module NAME: is the location the right one, was the module taken out with "
     "lumctl module remove?",
     "put a module in, or lumctl module insert NAME"},
    {"failing",
     "The module's latest transfer failed or does not end, or the bus or folder that it is reached "
     "through is not there. Its readings are as old as they say.",
     "the reason in lumctl show port NAME; lumctl show module NAME for the latest error",
     "a transfer that does not end: lumctl module release NAME, or pull the module; a bus that is "
     "not there: load i2c-dev, mend the description; else the module or its cage"},
    {"stale",
     "The module answered when it was last polled, and that is several polling cycles ago.",
     "the reason in lumctl show port NAME: polling is switched off, or another module holds it up",
     "as for not-polled"},
    {"up", "Both controllers exist, the module answers, and it is polled.", "lumctl show port NAME",
     "nothing is wrong"},
    {"upgrading",
     "The platform says that the module's firmware is being upgraded; it is not polled.",
     "whoever upgrades it", "wait for it to end"},
    // Alarms.
    {"flag-10",
     "The module has raised its flag in byte 10 of its lower page. The port's LED turns to fault.",
     "the module's own documentation of that byte; lumctl show port NAME for all flags and powers",
     "what the module's documentation says; the alarm goes with the flag"},
    {"flag-12",
     "The module has raised its flag in byte 12 of its lower page. The port's LED turns to fault.",
     "the module's own documentation of that byte; lumctl show port NAME for all flags and powers",
     "what the module's documentation says; the alarm goes with the flag"},
    {"flag-13",
     "The module has raised a flag in byte 13 of its lower page. The port's LED turns to fault.",
     "the module's own documentation of that byte; lumctl show port NAME for all flags and powers",
     "what the module's documentation says; the alarm goes with the flag"},
    {"flag-49-a",
     "Byte 49 of the module's lower page is not zero. It comes and goes with flag-49-b.",
     "the module's own documentation of that byte; lumctl show port NAME",
     "what the module's documentation says; the alarm goes with the flag"},
    {"flag-49-b",
     "Byte 49 of the module's lower page is not zero. It comes and goes with flag-49-a.",
     "the module's own documentation of that byte; lumctl show port NAME",
     "what the module's documentation says; the alarm goes with the flag"},
    {"flag-64-high",
     "The module has raised the higher of the sub-port's two flags in byte 64 of its lower page.",
     "the module's own documentation of that byte; lumctl show port NAME for the powers",
     "what the module's documentation says; the alarm goes with the flag"},
    {"flag-64-low",
     "The module has raised the lower of the sub-port's two flags in byte 64 of its lower page.",
     "the module's own documentation of that byte; lumctl show port NAME for the powers",
     "what the module's documentation says; the alarm goes with the flag"},
    // Findings.
    {"alarm-raised", "A module has raised alarms on a sub-port.",
     "lumctl show alarms, then lumctl explain ALARM", "as the alarm's own explanation says"},
    {"driver-stands",
     "A thread of the driver has not come round, or no module is polled for no "
     "reason that the driver knows.",
     "the driver's log, lumctl show node",
     "under systemd the watchdog starts it again; else systemctl restart lumd, and keep its "
     "traces"},
    {"events-not-kept",
     "What happens is told, and shown until the driver ends, but not kept over a restart.",
     "the reason: the disk is full, cannot be written or hangs; df of the state directory",
     "make room or mend the disk; what can still be kept is kept as soon as it can"},
    {"led-broken", "A port's LED cannot be set or read: what it shows is not what is so.",
     "the file and the reason in lumctl show port NAME",
     "mend the LED's folder, its names or its permissions; it is tried again every second"},
    {"never-polled", "The description is such that the library will never poll the modules.",
     "lumd --check --config FILE", "the rack has to be 0; do not have exactly 128 ports"},
    {"not-polled", "No module is being polled. Readings are as old as they say.",
     "the reason and since when: lumctl show node",
     "switched off: remove the file that it names; a module that hangs: lumctl module release NAME "
     "or pull it; a count of 0: lumctl replay"},
    {"place-missing",
     "The bus or the folder through which a module would be reached cannot be opened.",
     "lumctl show port NAME; i2cdetect -l",
     "load i2c-dev, mend the bus number or the path, give lumd's user the permission"},
    {"settings-at-risk",
     "Settings were lost or could not be saved, read or deleted: what comes back with the next "
     "start may not be what was set.",
     "lumctl show node: which port, and why", "mend the disk, then set them again"},
    {"store-unusable", "The store takes no changes: what is set now is in force and not kept.",
     "lumctl show node for the reason; the disk of the state directory",
     "make room on the disk or make it writable; the store is tried again every few seconds"},
    {"trace-lost", "Lines of a trace channel cannot be written.",
     "lumctl show node for the reason; the disk and folder of the traces",
     "make room or mend the folder; it is tried again every few seconds"},
    // What happens.
    {"alarm-cleared", "An alarm that was raised is not any more, or its module has gone.",
     "lumctl events PORT for when it was raised", "nothing"},
    {"batch-failed",
     "The interface manager has answered that it could not do what was asked of some controllers.",
     "lumctl im show; lumctl show controllers", "lumctl replay, once the manager is well"},
    {"batch-refused", "The interface manager has not taken a batch of requests.", "lumctl im show",
     "lumctl replay, once the manager is well"},
    {"batch-unanswered",
     "The interface manager has taken a batch of requests and does not answer it.",
     "lumctl im show: is it held, slow, or dropping batches?",
     "take the reason away, then lumctl replay"},
    {"driver-started", "lumd has started and brings its ports up.",
     "the lines before it: was it stopped, or did it end without a word?", "nothing"},
    {"driver-stopped", "lumd was told to stop, by a signal or the service manager.",
     "the journal of the service", "nothing"},
    {"events-lost",
     "More has happened than could be kept while the disk took nothing, or memory was short.",
     "lumctl show node for the disk that the state is on", "as for events-not-kept"},
    {"module-in", "A module has come into an empty cage.", "lumctl show port NAME", "nothing"},
    {"module-out", "A module has gone from its cage.",
     "whether somebody has pulled it: lumctl events NAME",
     "put it back, or another; until then the cage is empty"},
    {"module-swapped",
     "The module was taken out within a second, and it or another is in the cage.",
     "lumctl show port NAME", "nothing, if it was meant"},
    {"over", "What was wrong is so no more; the event names it.", "lumctl events for when it began",
     "nothing"},
    {"polling-late", "A polling cycle began more than two seconds later than it should have.",
     "lumctl show polling; the machine's load; modules that are slow",
     "as for not-polled, when it happens again and again"},
    {"port-state", "A port is in another state than before.",
     "lumctl explain STATE for the state that it names", "what that says"},
    {"ports-settled", "After a start, every port is what it will be: up, empty, or in trouble.",
     "lumctl show ports", "nothing"},
    {"setting-changed", "Somebody has changed a setting of a sub-port.",
     "the event: who it was, the old value and the new one", "nothing, if it was meant"},
}};

}  // namespace lum_words
