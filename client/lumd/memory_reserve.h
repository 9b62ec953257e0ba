// Memory kept for the moment in which there is none: a JSON document that goes takes memory for it,
// and without any the process would end. What cannot be served for want of memory is refused
// instead.
#pragma once

namespace lumd {

// So many times in a row memory may be refused to the process before one of its allocations fails.
inline constexpr int memory_failures_outlived = 4;

// To be called once, before any thread is started. From then on an allocation that fails is tried
// again with a part of the reserve given up, and, once these are used up, fails for good with the
// last one given up, for what its refusal takes.
void keep_memory_reserve();

// Takes back what was given up, as far as there is memory. Any thread; to be called before anything
// that takes memory: a request, a description that is read again, the end.
void renew_memory_reserve();

}  // namespace lumd
