#include "device/host/host_thread_state.h"

#include <atomic>
#include <utility>

namespace namespace_ratseg {

namespace {

struct Entry {
  std::uint64_t machine = 0;
  HostThreadState state;
  Entry* next = nullptr;
};

// The thread's entries, the one that was asked for last in front.
thread_local Entry* entries = nullptr;

// True once the entries are destroyed; has no destructor, so it can still be read then.
thread_local bool ended = false;
thread_local Entry last;

struct EntriesEnd {
  ~EntriesEnd() {
    ended = true;
    while (entries != nullptr) delete std::exchange(entries, entries->next);
  }
};

// Takes the machine's entry out of the list; null when there is none.
Entry* takeOut(std::uint64_t machine) {
  Entry** place = &entries;
  while (*place != nullptr && (*place)->machine != machine) place = &(*place)->next;
  Entry* entry = *place;
  if (entry != nullptr) *place = entry->next;
  return entry;
}

}  // namespace

std::uint64_t newHostMachine() {
  static std::atomic<std::uint64_t> machines = 0;
  return ++machines;
}

HostThreadState& hostThreadState(std::uint64_t machine) {
  if (entries != nullptr && entries->machine == machine) return entries->state;
  if (ended) {
    if (last.machine != machine) last = {machine, {}, nullptr};
    return last.state;
  }
  static thread_local EntriesEnd end;
  Entry* entry = takeOut(machine);
  if (entry == nullptr) entry = new Entry{machine, {}, nullptr};
  entry->next = entries;
  entries = entry;
  return entry->state;
}

void forgetHostThreadState(std::uint64_t machine) { delete takeOut(machine); }

}  // namespace namespace_ratseg
