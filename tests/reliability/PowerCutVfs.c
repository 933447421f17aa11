#include "PowerCutVfs.h"

#include <pthread.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- The record of each file ---------------------------------------------------------------- */

typedef struct Op {
    int truncate; /* a truncate to `offset`, else a write of `data` at `offset` */
    sqlite3_int64 offset;
    size_t size;
    unsigned char* data;
} Op;

typedef struct Tracked {
    char* path;
    int durableExists;
    unsigned char* durable; /* the content as of the last sync */
    size_t durableSize;
    Op* ops; /* writes and truncates since */
    size_t opCount;
    size_t opCapacity;
} Tracked;

/* A process may do I/O on several threads (articlectl copies the catalogue beside an import):
 * the records and counts below are kept under this lock, the real I/O runs outside it. */
static pthread_mutex_t state = PTHREAD_MUTEX_INITIALIZER;
#define LOCKED(statement)             \
    do {                              \
        pthread_mutex_lock(&state);   \
        statement;                    \
        pthread_mutex_unlock(&state); \
    } while (0)

static Tracked** tracked; /* each apart: open files point at theirs while the list grows */
static size_t trackedCount;
static sqlite3_vfs* real;
static sqlite3_vfs vfs;
static unsigned long long ios;
static unsigned long long cutAt;
static int off;
static int dropSyncs;
static unsigned long long classCount[4];
static unsigned long long faultAt; /* in classCount[faultClass]; 0 none */
static enum IoClass faultClass;
static enum IoFault faultKind;
static int faultHit;

static void* grow(void* memory, size_t size) {
    void* bigger = realloc(memory, size ? size : 1);
    if (!bigger) {
        abort(); /* a test process out of memory has nothing sensible left to report */
    }
    return bigger;
}

/* Writes `size` bytes at `offset` into an image, zero-filling any gap. */
static void place(unsigned char** image, size_t* imageSize, sqlite3_int64 offset,
                  const unsigned char* data, size_t size) {
    const size_t end = (size_t)offset + size;
    if (end > *imageSize) {
        *image = grow(*image, end);
        memset(*image + *imageSize, 0, end - *imageSize);
        *imageSize = end;
    }
    if (size > 0) {
        memcpy(*image + offset, data, size);
    }
}

static void clearOps(Tracked* t) {
    for (size_t i = 0; i < t->opCount; ++i) {
        free(t->ops[i].data);
    }
    t->opCount = 0;
}

static void record(Tracked* t, int truncate, sqlite3_int64 offset, const void* data, size_t size) {
    if (t->opCount == t->opCapacity) {
        t->opCapacity = t->opCapacity ? 2 * t->opCapacity : 16;
        t->ops = grow(t->ops, t->opCapacity * sizeof(Op));
    }
    Op* op = &t->ops[t->opCount++];
    op->truncate = truncate;
    op->offset = offset;
    op->size = size;
    op->data = NULL;
    if (!truncate) {
        op->data = grow(NULL, size);
        memcpy(op->data, data, size);
    }
}

/* A sync: everything written so far is durable. */
static void makeDurable(Tracked* t) {
    for (size_t i = 0; i < t->opCount; ++i) {
        const Op* op = &t->ops[i];
        if (op->truncate) {
            if ((size_t)op->offset < t->durableSize) {
                t->durableSize = (size_t)op->offset;
            }
        } else {
            place(&t->durable, &t->durableSize, op->offset, op->data, op->size);
        }
    }
    clearOps(t);
    t->durableExists = 1;
}

/* The record of `path`; a file met for the first time starts as what the disk holds. */
static Tracked* find(const char* path) {
    for (size_t i = 0; i < trackedCount; ++i) {
        if (strcmp(tracked[i]->path, path) == 0) {
            return tracked[i];
        }
    }
    tracked = grow(tracked, (trackedCount + 1) * sizeof(Tracked*));
    Tracked* t = grow(NULL, sizeof(Tracked));
    tracked[trackedCount++] = t;
    memset(t, 0, sizeof *t);
    t->path = grow(NULL, strlen(path) + 1);
    strcpy(t->path, path);
    FILE* file = fopen(path, "rb");
    if (file) {
        t->durableExists = 1;
        unsigned char buffer[65536];
        size_t got;
        while ((got = fread(buffer, 1, sizeof buffer, file)) > 0) {
            place(&t->durable, &t->durableSize, (sqlite3_int64)t->durableSize, buffer, got);
        }
        fclose(file);
    }
    return t;
}

/* Counts an I/O; zero when the power is (or just went) off and it must not happen. */
static int powered(void) {
    pthread_mutex_lock(&state);
    if (!off) {
        ++ios;
        off = cutAt != 0 && ios >= cutAt;
    }
    const int on = !off;
    pthread_mutex_unlock(&state);
    return on;
}

static int isOff(void) {
    int now = 0;
    LOCKED(now = off);
    return now;
}

/* Counts an I/O of `ioClass`; non-zero when it is the one that must fail. */
static int faulty(enum IoClass ioClass) {
    int hit = 0;
    pthread_mutex_lock(&state);
    const unsigned long long n = ++classCount[ioClass];
    if (faultAt != 0 && ioClass == faultClass && n == faultAt) {
        faultAt = 0; /* once: the disk works again afterwards */
        faultHit = 1;
        hit = 1;
    }
    pthread_mutex_unlock(&state);
    return hit;
}

/* ---- The file methods ------------------------------------------------------------------------ */

typedef struct PcFile {
    sqlite3_file base;
    Tracked* tracked; /* NULL for files a cut does not concern (temporary files) */
    sqlite3_file* real;
} PcFile;

/* The calls a cut or a fault does not concern go straight to the real file. */
#define REAL(file) (((PcFile*)(file))->real)
#define PASS(name, params, args)                   \
    static int pc##name params {                   \
        return REAL(file)->pMethods->x##name args; \
    }
PASS(Close, (sqlite3_file * file), (REAL(file)))
PASS(FileSize, (sqlite3_file * file, sqlite3_int64* size), (REAL(file), size))
PASS(Unlock, (sqlite3_file * file, int level), (REAL(file), level))
PASS(CheckReservedLock, (sqlite3_file * file, int* result), (REAL(file), result))
PASS(FileControl, (sqlite3_file * file, int op, void* arg), (REAL(file), op, arg))
PASS(SectorSize, (sqlite3_file * file), (REAL(file)))
PASS(DeviceCharacteristics, (sqlite3_file * file), (REAL(file)))
PASS(ShmMap, (sqlite3_file * file, int region, int size, int extend, void volatile** map),
     (REAL(file), region, size, extend, map))
PASS(ShmUnmap, (sqlite3_file * file, int deleteFlag), (REAL(file), deleteFlag))

static int pcRead(sqlite3_file* file, void* data, int size, sqlite3_int64 offset) {
    PcFile* p = (PcFile*)file;
    if (isOff()) {
        return SQLITE_IOERR_READ;
    }
    const int fault = faulty(IO_READ);
    if (fault && faultKind != IO_FAULT_SHORT) {
        return SQLITE_IOERR_READ;
    }
    const int rc = p->real->pMethods->xRead(p->real, data, fault ? size / 2 : size, offset);
    if (fault) {
        memset((unsigned char*)data + size / 2, 0, (size_t)(size - size / 2));
    }
    return rc == SQLITE_OK && fault ? SQLITE_IOERR_SHORT_READ : rc;
}

static int pcWrite(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) {
    PcFile* p = (PcFile*)file;
    if (!powered()) {
        return SQLITE_IOERR_WRITE;
    }
    const int fault = faulty(IO_WRITE);
    if (fault && faultKind == IO_FAULT_LIE) {
        return SQLITE_OK;
    } else if (fault && faultKind != IO_FAULT_FULL && faultKind != IO_FAULT_SHORT) {
        return SQLITE_IOERR_WRITE;
    }
    /* What a disk that fills up midway leaves: the first half written. */
    const int written = fault ? size / 2 : size;
    const int rc = p->real->pMethods->xWrite(p->real, data, written, offset);
    if (rc == SQLITE_OK && p->tracked) {
        LOCKED(record(p->tracked, 0, offset, data, (size_t)written));
    }
    return rc != SQLITE_OK || !fault    ? rc
           : faultKind == IO_FAULT_FULL ? SQLITE_FULL
                                        : SQLITE_IOERR_WRITE;
}

static int pcTruncate(sqlite3_file* file, sqlite3_int64 size) {
    PcFile* p = (PcFile*)file;
    if (!powered()) {
        return SQLITE_IOERR_TRUNCATE;
    }
    const int rc = p->real->pMethods->xTruncate(p->real, size);
    if (rc == SQLITE_OK && p->tracked) {
        LOCKED(record(p->tracked, 1, size, NULL, 0));
    }
    return rc;
}

static int pcSync(sqlite3_file* file, int flags) {
    PcFile* p = (PcFile*)file;
    (void)flags;
    if (!powered()) {
        return SQLITE_IOERR_FSYNC;
    }
    if (faulty(IO_SYNC)) {
        return SQLITE_IOERR_FSYNC; /* and nothing since the last sync is known to be durable */
    }
    if (p->tracked && !dropSyncs) {
        LOCKED(makeDurable(p->tracked));
    }
    return SQLITE_OK;
}

static int pcLock(sqlite3_file* file, int level) {
    PcFile* p = (PcFile*)file;
    if (faulty(IO_LOCK)) {
        return faultKind == IO_FAULT_BUSY ? SQLITE_BUSY : SQLITE_IOERR_LOCK;
    }
    return p->real->pMethods->xLock(p->real, level);
}

static int pcShmLock(sqlite3_file* file, int offset, int n, int flags) {
    PcFile* p = (PcFile*)file;
    /* In WAL mode the file lock is held while the connection is open: the write and read locks
     * of a transaction are these. Only taking one can fail. */
    if ((flags & SQLITE_SHM_LOCK) && faulty(IO_LOCK)) {
        return faultKind == IO_FAULT_BUSY ? SQLITE_BUSY : SQLITE_IOERR_SHMLOCK;
    }
    return p->real->pMethods->xShmLock(p->real, offset, n, flags);
}

static void pcShmBarrier(sqlite3_file* file) {
    PcFile* p = (PcFile*)file;
    p->real->pMethods->xShmBarrier(p->real);
}

/* Version 2: no memory-mapped I/O (the library has it off too), so every write is seen. */
static const sqlite3_io_methods methods = {2,
                                           pcClose,
                                           pcRead,
                                           pcWrite,
                                           pcTruncate,
                                           pcSync,
                                           pcFileSize,
                                           pcLock,
                                           pcUnlock,
                                           pcCheckReservedLock,
                                           pcFileControl,
                                           pcSectorSize,
                                           pcDeviceCharacteristics,
                                           pcShmMap,
                                           pcShmLock,
                                           pcShmBarrier,
                                           pcShmUnmap,
                                           NULL,
                                           NULL};

/* ---- The VFS methods ------------------------------------------------------------------------- */

static int pcOpen(sqlite3_vfs* self, const char* name, sqlite3_file* file, int flags,
                  int* outFlags) {
    (void)self;
    PcFile* p = (PcFile*)file;
    p->base.pMethods = NULL;
    if (isOff()) {
        return SQLITE_CANTOPEN;
    }
    p->real = (sqlite3_file*)(p + 1);
    p->tracked = NULL;
    const int kinds = SQLITE_OPEN_MAIN_DB | SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_WAL;
    if (name && (flags & kinds) && !(flags & SQLITE_OPEN_DELETEONCLOSE)) {
        LOCKED(p->tracked = find(name));
    }
    const int rc = real->xOpen(real, name, p->real, flags, outFlags);
    if (rc == SQLITE_OK) {
        p->base.pMethods = &methods;
    }
    return rc;
}

static int pcDelete(sqlite3_vfs* self, const char* name, int syncDir) {
    (void)self;
    if (!powered()) {
        return SQLITE_IOERR_DELETE;
    }
    const int rc = real->xDelete(real, name, syncDir);
    pthread_mutex_lock(&state);
    for (size_t i = 0; i < trackedCount; ++i) {
        if (strcmp(tracked[i]->path, name) == 0) {
            clearOps(tracked[i]);
            tracked[i]->durableExists = 0;
            tracked[i]->durableSize = 0;
        }
    }
    pthread_mutex_unlock(&state);
    return rc;
}

int power_cut_vfs_register(void) {
    real = sqlite3_vfs_find(NULL);
    if (!real) {
        return SQLITE_ERROR;
    }
    /* The default VFS's own methods serve the rest: they do not look at the VFS they are given. */
    vfs = *real;
    vfs.pNext = NULL;
    vfs.szOsFile = (int)sizeof(PcFile) + real->szOsFile;
    vfs.zName = "power-cut";
    vfs.xOpen = pcOpen;
    vfs.xDelete = pcDelete;
    return sqlite3_vfs_register(&vfs, 1);
}

void power_cut_vfs_arm(unsigned long long io) {
    cutAt = io;
}

void power_cut_vfs_cut(void) {
    LOCKED(off = 1);
}

int power_cut_vfs_is_off(void) {
    return isOff();
}

unsigned long long power_cut_vfs_ios(void) {
    return ios;
}

void power_cut_vfs_drop_syncs(int on) {
    dropSyncs = on;
}

unsigned long long power_cut_vfs_count(enum IoClass ioClass) {
    return classCount[ioClass];
}

void power_cut_vfs_fault(enum IoClass ioClass, unsigned long long n, enum IoFault fault) {
    faultClass = ioClass;
    faultAt = n == 0 ? 0 : classCount[ioClass] + n;
    faultKind = fault;
    faultHit = 0;
}

int power_cut_vfs_fault_hit(void) {
    return faultHit;
}

/* ---- After the cut --------------------------------------------------------------------------- */

static unsigned long long nextRandom(unsigned long long* state) {
    /* splitmix64: enough for choosing what survives, and the same on every machine */
    unsigned long long z = (*state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

enum { sector = 512 };

int power_cut_vfs_write_images(const char* folder, enum PowerCutKind kind,
                               unsigned long long seed) {
    unsigned long long state = seed;
    for (size_t i = 0; i < trackedCount; ++i) {
        const Tracked* t = tracked[i];
        if (!t->durableExists) {
            continue; /* never synced since it was created (or deleted): gone */
        }
        unsigned char* image = grow(NULL, t->durableSize);
        size_t size = t->durableSize;
        if (size > 0) { /* a durable empty file has no buffer */
            memcpy(image, t->durable, size);
        }
        for (size_t k = 0; k < t->opCount && kind != POWER_CUT_LOSE_ALL; ++k) {
            const Op* op = &t->ops[k];
            /* An unsynced size change is undone. Each write survives or not as a whole, or when
             * torn each piece of it between 512-byte boundaries of the file does. */
            for (size_t done = 0, piece; !op->truncate && done < op->size; done += piece) {
                const sqlite3_int64 at = op->offset + (sqlite3_int64)done;
                piece = kind == POWER_CUT_TEAR ? sector - (size_t)(at % sector) : op->size;
                piece = piece < op->size - done ? piece : op->size - done;
                if (nextRandom(&state) & 1) {
                    place(&image, &size, at, op->data + done, piece);
                }
            }
        }
        const char* base = strrchr(t->path, '/');
        base = base ? base + 1 : t->path;
        char* path = grow(NULL, strlen(folder) + strlen(base) + 2);
        sprintf(path, "%s/%s", folder, base);
        FILE* file = fopen(path, "wb");
        const int written = file && fwrite(image, 1, size, file) == size;
        if (file) {
            fclose(file);
        }
        free(path);
        free(image);
        if (!written) {
            return -1;
        }
    }
    return 0;
}
