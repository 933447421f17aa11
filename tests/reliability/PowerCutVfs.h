#pragma once

/* A test VFS that can cut the power. It wraps the default VFS and becomes the default itself,
 * so the library under test opens its files through it unchanged. It counts every write,
 * truncate, sync and delete; when the count reaches the armed cut, the power is off: that I/O
 * and every later one fail, and nothing more reaches the disk.
 *
 * For each database, journal and WAL file it keeps the durable image (the content as of the
 * file's last xSync) and the writes and truncates made since. After a cut it writes into a
 * folder what a real power cut could have left on disk:
 *   - a write not followed by a sync of its file is lost (all, a random subset, or torn into a
 *     random subset of its 512-byte sectors, by the kind of cut);
 *   - a truncate not followed by a sync is undone;
 *   - a file created and never synced since is gone (SQLite syncs the folder on the first sync
 *     of a new WAL or journal; the folder entry of the main file is taken to last from its first
 *     sync on);
 *   - a delete is taken as done at once;
 *   - the -shm file, memory SQLite rebuilds from the WAL, is not written at all.
 * The real fsync is never called: the images come from this record, not from the disk.
 *
 * It can also fail one I/O and go on: the n-th write, sync, read or lock from now fails once
 * with a chosen error, as a full or failing disk would, and later I/O works again. */

#ifdef __cplusplus
extern "C" {
#endif

enum PowerCutKind {
    POWER_CUT_LOSE_ALL = 0,  /* every unsynced write lost */
    POWER_CUT_LOSE_SOME = 1, /* each unsynced write kept or lost at random */
    POWER_CUT_TEAR = 2       /* each 512-byte sector of each unsynced write kept or lost */
};

/* Registers the VFS as the default; once per process. SQLITE_OK or SQLite's error. */
int power_cut_vfs_register(void);

/* Cuts the power just before the I/O numbered `io` (counting from 1); 0 never. */
void power_cut_vfs_arm(unsigned long long io);

/* Cuts the power now. */
void power_cut_vfs_cut(void);

/* Non-zero once the power is off. */
int power_cut_vfs_is_off(void);

/* The I/Os counted so far. */
unsigned long long power_cut_vfs_ios(void);

/* While on, a sync makes nothing durable: what a disk that ignores flushes, or a library that
 * does not ask for them, would give. Breaks durability on purpose, to show the check fails. */
void power_cut_vfs_drop_syncs(int on);

/* Writes the images of every file opened so far, by its base name, into `folder` (which must
 * exist); the random choices come from `seed`. 0 on success, -1 when a file cannot be
 * written. */
int power_cut_vfs_write_images(const char* folder, enum PowerCutKind kind, unsigned long long seed);

/* ---- Single I/O faults -------------------------------------------------------------------- */

/* The I/Os a fault can hit, each counted apart over every file. */
enum IoClass {
    IO_WRITE = 0, /* xWrite */
    IO_SYNC = 1,  /* xSync */
    IO_READ = 2,  /* xRead */
    IO_LOCK = 3   /* xLock, and xShmLock taking a lock (WAL mode's transaction locks) */
};

enum IoFault {
    IO_FAULT_ERROR = 0, /* fails: SQLITE_IOERR_WRITE, _FSYNC, _READ, _LOCK or _SHMLOCK */
    IO_FAULT_FULL = 1,  /* a write: half of it reaches the file, then SQLITE_FULL */
    IO_FAULT_SHORT = 2, /* a write: half of it reaches the file, then SQLITE_IOERR_WRITE; a read:
                           half of it read, the rest zeroed, SQLITE_IOERR_SHORT_READ */
    IO_FAULT_BUSY = 3,  /* a lock: SQLITE_BUSY */
    IO_FAULT_LIE = 4    /* a write: SQLITE_OK, but nothing reaches the file. Breaks on purpose,
                           to show the check fails */
};

/* The I/Os of `ioClass` counted so far. */
unsigned long long power_cut_vfs_count(enum IoClass ioClass);

/* The `n`-th I/O of `ioClass` from now (counting from 1) fails once with `fault`; 0 disarms. */
void power_cut_vfs_fault(enum IoClass ioClass, unsigned long long n, enum IoFault fault);

/* Non-zero once the armed fault has happened. */
int power_cut_vfs_fault_hit(void);

#ifdef __cplusplus
}
#endif
