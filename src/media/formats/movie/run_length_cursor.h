// A position in a table of runs, moved one item at a time in either direction without expanding
// the runs. A run's entry gives its length in one of two ways: counted tables hold the number of
// items of each run in the entry's first field; first-indexed tables hold the 1-based index of
// the run's first item there, and a run lasts until the next run's first item (the last run until
// the end of the items). Runs of no items are passed over both ways.
#pragma once

#include <cstdint>

#include "media/formats/movie/movie_boxes.h"

class RunLengthCursor {
 public:
  // The first item of a counted table.
  static RunLengthCursor Counted(const EntryTable& runs);
  // The first item of a first-indexed table whose items end at `itemCount`.
  static RunLengthCursor FirstIndexed(const EntryTable& runs, uint64_t itemCount);

  // False when the table holds no items: the cursor then never moves.
  // The run that holds the current item.
  uint32_t Run() const { return run_; }
  // The current item, counted from 0 at the table's first item (in a first-indexed table whose
  // first run starts at 1, the item's 0-based index).
  uint64_t Item() const { return item_; }

  // Moves to the next or previous item; false at the last or first item, where the cursor stays.
  bool StepForward();
  bool StepBackward();

 private:
  uint64_t RunLength(uint32_t run) const;

  EntryTable runs_;
  bool firstIndexed_ = false;
  uint64_t itemCount_ = 0;  // first-indexed tables only
  bool onItem_ = false;
  uint32_t run_ = 0;
  uint64_t inRun_ = 0;
  uint64_t item_ = 0;
};
