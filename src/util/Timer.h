#ifndef RATSEG_UTIL_TIMER_H
#define RATSEG_UTIL_TIMER_H

#include <ctime>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>

namespace namespace_ratseg {

// Named stopwatches of processor time. A stopwatch is made at the first begin() of its name and
// adds up its spans of begin() to end().
class Timer {
 public:
  class TimeEntry {
   public:
    virtual ~TimeEntry() = default;
    virtual void begin() = 0;
    virtual void end() = 0;
    // Seconds added up so far, to the nearest 10 microseconds. Ends the span that is running.
    virtual float get();

    float tOverall = 0;    // seconds
    bool running = false;  // between begin() and end()
  };

  // Processor time of this process.
  class TimeEntryCPU : public TimeEntry {
   public:
    void begin() override;
    void end() override;

    std::clock_t start = 0;  // ticks
    std::clock_t stop = 0;
  };

  virtual ~Timer() = default;

  // Forget all stopwatches, or one.
  virtual void clear();
  virtual void clear(const std::string& name);

  virtual void begin(const std::string& name);
  // On a name that never began: one line on standard error.
  virtual void end(const std::string& name);
  // Seconds, see TimeEntry::get. On a name that never began: one line on standard error, and 0.
  virtual float get(const std::string& name);

  // Writes a table of the stopwatches, sorted by name, with whole milliseconds and per cent of
  // their sum (0 when that is 0), each line after prefix. Ends what is running. The blanks between
  // the two columns deliberately go to standard output, whatever out is.
  virtual void printAll(std::ostream& out, std::string prefix);
  // To standard output.
  virtual void printAll(std::string prefix);
  virtual void printAll();

  // Makes a stopwatch for begin(); the caller owns it.
  virtual TimeEntry* createEntry();

  std::map<std::string, std::unique_ptr<TimeEntry>> entries;
};

}  // namespace namespace_ratseg

#endif
