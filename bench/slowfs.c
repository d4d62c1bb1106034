/* kestrel-slowfs: shows a folder through FUSE, read-only, with a delay added
 * to every request that needs the "server" (looking a name up, examining an
 * item, reading a folder), as a network file system has a round trip for
 * each. The bench scans such a tree to see how the scan copes with latency.
 *   kestrel-slowfs SOURCE MOUNTPOINT MICROSECONDS [fuse options]
 * Runs until the mount point is unmounted (fusermount3 -u MOUNTPOINT). */
#define FUSE_USE_VERSION 31
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <fuse.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static char source[4096];
static long delayMicroseconds;

static void roundTrip(void) {
    const struct timespec wait = {delayMicroseconds / 1000000,
                                  (delayMicroseconds % 1000000) * 1000};
    nanosleep(&wait, NULL);
}

static void real(const char* path, char* out) {
    snprintf(out, 8192, "%s%s", source, path);
}

static int slowGetattr(const char* path, struct stat* st, struct fuse_file_info* fi) {
    (void)fi;
    char full[8192];
    real(path, full);
    roundTrip();
    return lstat(full, st) == 0 ? 0 : -errno;
}

static int slowReaddir(const char* path, void* buffer, fuse_fill_dir_t fill, off_t offset,
                       struct fuse_file_info* fi, enum fuse_readdir_flags flags) {
    (void)offset;
    (void)fi;
    (void)flags;
    char full[8192];
    real(path, full);
    roundTrip();
    DIR* dir = opendir(full);
    if (!dir)
        return -errno;
    const struct dirent* d;
    while ((d = readdir(dir)) != NULL) {
        struct stat st = {0};
        st.st_ino = d->d_ino;
        st.st_mode = (mode_t)d->d_type << 12;
        if (fill(buffer, d->d_name, &st, 0, 0))
            break;
    }
    closedir(dir);
    return 0;
}

static int slowOpen(const char* path, struct fuse_file_info* fi) {
    char full[8192];
    real(path, full);
    const int fd = open(full, O_RDONLY);
    if (fd < 0)
        return -errno;
    fi->fh = (uint64_t)fd;
    return 0;
}

static int slowRead(const char* path, char* buffer, size_t size, off_t offset,
                    struct fuse_file_info* fi) {
    (void)path;
    roundTrip();
    const ssize_t n = pread((int)fi->fh, buffer, size, offset);
    return n < 0 ? -errno : (int)n;
}

static int slowRelease(const char* path, struct fuse_file_info* fi) {
    (void)path;
    close((int)fi->fh);
    return 0;
}

static int slowReadlink(const char* path, char* buffer, size_t size) {
    char full[8192];
    real(path, full);
    const ssize_t n = readlink(full, buffer, size - 1);
    if (n < 0)
        return -errno;
    buffer[n] = 0;
    return 0;
}

static void* slowInit(struct fuse_conn_info* conn, struct fuse_config* cfg) {
    (void)conn;
    /* Nothing is cached by the kernel: every request goes to the "server". */
    cfg->entry_timeout = 0;
    cfg->attr_timeout = 0;
    cfg->negative_timeout = 0;
    cfg->use_ino = 1;
    return NULL;
}

static const struct fuse_operations operations = {
    .getattr = slowGetattr,
    .readlink = slowReadlink,
    .open = slowOpen,
    .read = slowRead,
    .release = slowRelease,
    .readdir = slowReaddir,
    .init = slowInit,
};

int main(int argc, char* argv[]) {
    if (argc < 4) {
        fprintf(stderr, "usage: kestrel-slowfs SOURCE MOUNTPOINT MICROSECONDS [fuse options]\n");
        return 2;
    }
    if (!realpath(argv[1], source)) {
        perror(argv[1]);
        return 2;
    }
    delayMicroseconds = atol(argv[3]);
    /* fuse_main's own arguments: the mount point, read-only, threaded, any others given. */
    char* fuseArguments[64];
    int n = 0;
    fuseArguments[n++] = argv[0];
    fuseArguments[n++] = argv[2];
    fuseArguments[n++] = "-o";
    fuseArguments[n++] = "ro,default_permissions";
    for (int i = 4; i < argc && n < 63; ++i)
        fuseArguments[n++] = argv[i];
    fuseArguments[n] = NULL;
    return fuse_main(n, fuseArguments, &operations, NULL);
}
