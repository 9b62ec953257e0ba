// What is measured, subject by subject.
#pragma once

#include "metrics/metrics_page.h"

namespace lumd {

class driver;

// The ports, their modules and sub-ports.
void add_port_metrics(driver &node, metrics_page &page);

// The process that the driver is.
void add_process_metrics(driver &node, metrics_page &page);

// The driver itself: build, polling, interface manager, checkpoints, traces. Waits for the disk.
void add_node_metrics(driver &node, metrics_page &page);

}  // namespace lumd
