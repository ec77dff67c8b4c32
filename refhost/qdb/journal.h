// The bookings journal of a directory of tables, and its lock (internal to
// libqdb).
//
// The file qslave.jnl beside the tables is three things at once:
//  - the lock: a process holds the directory's tables for one booking (or
//    one plain write) by an open-file-description lock on it, waited for
//    within a bound;
//  - the journal: before a booking touches a table, every byte range it
//    will write (with the table's file name and inode) is appended here as
//    one checksummed entry and synced. Then the tables are written (in the
//    page cache) and the entry is marked applied. The tables themselves
//    are synced only at a checkpoint, when the journal has grown, after
//    which it is emptied. One sync per booking, and still all or nothing:
//     * a process killed between the sync and the writes leaves an entry
//       not marked applied: the next process that takes the lock writes it;
//     * after a power cut (the machine's boot id in the journal differs
//       from the running one) every entry since the last checkpoint is
//       written again, in order; the entries are after-images, so writing
//       one twice gives the same bytes;
//     * an entry cut short or with a wrong checksum never became durable,
//       was never reported done, and is dropped;
//  - the change count: every change of a table's structure (records
//    appended, deleted, keys rewritten, a pack, a recovery) made by any
//    process adds one, so that other processes know to reload their
//    indexes.
// Programs that write the tables without this journal (other dBase tools)
// are seen through the files' own change times only.
#ifndef QSLAVE_REFHOST_JOURNAL_H
#define QSLAVE_REFHOST_JOURNAL_H

#include <sys/types.h>

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "dbf_file.h"

namespace qdb {

// One write of a booking: bytes at an offset of a table file. The name and
// the bytes are views: of the booking's own records when it is journalled,
// of the journal read back when it is replayed. They must outlive the part.
struct JournalPart {
  std::string_view file;  // the file's name within the journal's directory
  ino_t inode = 0;        // the file it was made for; another file is not written
  long long offset = 0;
  std::string_view bytes;
};

class Journal {
 public:
  static const char kFileName[];

  // The journal of directory dir, shared by every table of this process in
  // it; Release when done.
  static Journal* Acquire(const std::string& dir);
  static void Release(Journal* journal);

  const std::string& Dir() const { return dir_; }
  std::string Path() const;

  // Takes the directory's lock, re-entrant within the process, waiting at
  // most waitMs milliseconds. The first taker completes an interrupted
  // booking first (see above). False, with *why, when the lock cannot be
  // had or the interrupted booking cannot be completed.
  bool Lock(int waitMs, std::string* why);
  void Unlock();
  bool Locked() const { return depth_ > 0; }
  // Completes a booking left unfinished, when the lock is free now (a lock
  // that is taken belongs to a live process, which finishes its booking
  // itself). False, with *why, when an unfinished booking could not be
  // completed.
  bool CompleteUnfinished(std::string* why);

  // The change count (0 when there is no journal yet). Under the lock it
  // is exact; without it, as the file says now.
  unsigned long long ChangeCount();
  // One more structural change (under the lock).
  void CountChange();

  // Appends one booking's writes and syncs them. False: the journal is as
  // it was, nothing of the booking stands.
  bool Append(const std::vector<JournalPart>& parts, std::string* why);
  // The last appended entry is in the tables.
  void MarkApplied();
  // The last appended entry's writes were undone: it is removed. False
  // when the journal could not be restored (the entry then stands and the
  // next taker of the lock completes it).
  bool CancelLast(std::string* why);
  // Writes the last appended entry again (after a failure to undo it).
  bool ReplayLast(std::string* why);
  // Whether the journal has grown enough for a checkpoint.
  bool WantsCheckpoint() const;
  // Syncs every table the journal names, then empties it (under the lock).
  bool Checkpoint(std::string* why);
  // Without the machine's boot id a power cut cannot be told apart: every
  // booking then syncs its tables itself.
  bool TablesNeedSync() const { return !bootKnown_; }

 private:
  struct Header;

  explicit Journal(const std::string& dir);
  ~Journal();
  bool OpenFile(bool create, std::string* why);
  bool TakeFileLock(int waitMs, std::string* why);
  void ReleaseFileLock();
  bool Recover(std::string* why);
  bool WriteHeader();
  // Writes the entries in [from, to) into their tables; *written gets the
  // files that were written.
  bool Replay(long long from, long long to, std::vector<std::string>* written, std::string* why);
  bool SyncFiles(const std::vector<std::string>& names, std::string* why);
  // *end gets the end of the whole, valid entries from `from` on; false
  // when the journal cannot be read (never taken for an empty journal).
  bool ScanEntries(long long from, long long size, long long* end);

  std::string dir_;
  int fd_ = -1;
  pid_t pid_ = 0;  // the process that opened fd_
  bool writable_ = false;
  int refs_ = 0;
  int depth_ = 0;
  std::recursive_timed_mutex mutex_;
  bool bootKnown_ = false;
  std::string bootId_;
  unsigned long long changes_ = 0;
  long long applied_ = 0;
  long long end_ = 0;
  long long lastStart_ = -1;
};

}  // namespace qdb

#endif
