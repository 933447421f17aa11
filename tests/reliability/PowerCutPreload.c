/* Puts a program the tests do not build themselves (articlectl) on PowerCutVfs: loaded with
 * LD_PRELOAD, it registers the VFS before main and arms it from the environment, and at exit
 * cuts the power, writes the images and reports on standard error.
 *
 *   POWER_CUT_IMAGES=FOLDER  at exit, write what the disk could hold into FOLDER
 *   POWER_CUT_AT=N           cut the power just before the N-th I/O (0 or unset: at exit)
 *   POWER_CUT_KIND=K         0 all unsynced writes lost, 1 some, 2 torn (see PowerCutVfs.h)
 *   POWER_CUT_SEED=S         the random choices of the images
 *   POWER_CUT_FAULT="C N F"  the N-th I/O of class C fails once with fault F (IoClass, IoFault)
 *
 * The report, the last line on standard error: "power-cut-vfs: IOS HIT WRITES SYNCS READS LOCKS"
 * (HIT 1 when the armed fault happened), or "power-cut-vfs: failed WHY". */

#include <stdio.h>
#include <stdlib.h>

#include "PowerCutVfs.h"

static int registered;

static unsigned long long number(const char* name) {
    const char* value = getenv(name);
    return value ? strtoull(value, NULL, 10) : 0;
}

__attribute__((constructor)) static void powerCutStart(void) {
    registered = power_cut_vfs_register() == 0;
    if (!registered) {
        return;
    }
    power_cut_vfs_arm(number("POWER_CUT_AT"));
    const char* fault = getenv("POWER_CUT_FAULT");
    unsigned int ioClass = 0;
    unsigned long long n = 0;
    unsigned int kind = 0;
    if (fault && sscanf(fault, "%u %llu %u", &ioClass, &n, &kind) == 3 && ioClass <= IO_LOCK &&
        kind <= IO_FAULT_LIE) {
        power_cut_vfs_fault((enum IoClass)ioClass, n, (enum IoFault)kind);
    }
}

__attribute__((destructor)) static void powerCutEnd(void) {
    if (!registered) {
        fprintf(stderr, "power-cut-vfs: failed to register\n");
        return;
    }
    const unsigned long long ios = power_cut_vfs_ios();
    const char* images = getenv("POWER_CUT_IMAGES");
    if (images) {
        power_cut_vfs_cut();
        if (power_cut_vfs_write_images(images, (enum PowerCutKind)number("POWER_CUT_KIND"),
                                       number("POWER_CUT_SEED")) != 0) {
            fprintf(stderr, "power-cut-vfs: failed to write the images\n");
            return;
        }
    }
    fprintf(stderr, "power-cut-vfs: %llu %d %llu %llu %llu %llu\n", ios, power_cut_vfs_fault_hit(),
            power_cut_vfs_count(IO_WRITE), power_cut_vfs_count(IO_SYNC),
            power_cut_vfs_count(IO_READ), power_cut_vfs_count(IO_LOCK));
}
