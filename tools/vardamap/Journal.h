// Journal.h - what the journal the plug-in keeps beside a map while changing
// it (MAP.shp.jnl) says, read before the map is opened, so that the tool can
// tell the user what the opening put right: the plug-in plays such a journal
// inside its open call and the host records have no way to say so.
#ifndef VARDAMAP_JOURNAL_H
#define VARDAMAP_JOURNAL_H

#include <cstdint>
#include <string>

namespace vardamap {

struct JournalFound {
  enum Kind {
    kNone,        // no journal beside the map
    kFinished,    // a finished change's leftover: removed without a word
    kCutShort,    // cut short before the map was touched: thrown away
    kUndoKept,    // an interrupted replace or delete, undone from kept bytes
    kUndoBackup,  // an interrupted first change, undone from the .bak copies
    kAppends,     // an interrupted run of appends, written into the map
    kReplaced,    // a change made on copies of the files, put in the map's place
  };
  Kind kind = kNone;
  std::string path;          // MAP.shp.jnl
  uint32_t records_before = 0;  // a run of appends: the map's records before it
};

// Looks at `shp_path` + ".jnl" without changing anything.
JournalFound InspectJournal(const std::string& shp_path);

// One plain sentence on what opening the map did with the journal, once it
// is gone; `records` is the map's record count after the opening. Empty for
// kNone and kFinished.
std::string DescribeRecovery(const JournalFound& found, long long records);

}  // namespace vardamap

#endif
