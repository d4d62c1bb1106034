/* The floor for a scan: walks a tree with getdents64 and fstatat on N
 * threads, storing nothing. Kestrel cannot list and examine every item
 * faster than the system calls this makes. With -r it also reads every
 * regular file that is not empty (open, read to the end, close): the floor
 * for a scan that takes content fingerprints.
 *   kestrel-barewalk [-t THREADS] [-r] FOLDER
 * Prints the number of items examined. */
#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

struct linux_dirent64 {
    unsigned long long d_ino;
    long long d_off;
    unsigned short d_reclen;
    unsigned char d_type;
    char d_name[];
};

static char** stack;
static size_t stackSize, stackCapacity;
static int busy; /* threads holding a folder */
static int readFiles;
static long long items;
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t more = PTHREAD_COND_INITIALIZER;

static void push(char* path) {
    if (stackSize == stackCapacity) {
        stackCapacity = stackCapacity ? stackCapacity * 2 : 1024;
        stack = realloc(stack, stackCapacity * sizeof *stack);
    }
    stack[stackSize++] = path;
}

static void readFile(int dirFd, const char* name, char* block, size_t size) {
    int fd =
        openat(dirFd, name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC | O_NOATIME);
    if (fd < 0)
        return;
    while (read(fd, block, size) == (ssize_t)size)
        ;
    close(fd);
}

static void* walk(void* unused) {
    (void)unused;
    char buffer[1 << 16];
    const size_t blockSize = 1 << 18;
    char* block = malloc(blockSize);
    long long mine = 0;
    for (;;) {
        pthread_mutex_lock(&lock);
        while (stackSize == 0 && busy > 0)
            pthread_cond_wait(&more, &lock);
        if (stackSize == 0) {
            pthread_cond_broadcast(&more);
            pthread_mutex_unlock(&lock);
            break;
        }
        char* path = stack[--stackSize];
        ++busy;
        pthread_mutex_unlock(&lock);

        int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd >= 0) {
            size_t length = strlen(path);
            for (;;) {
                long n = syscall(SYS_getdents64, fd, buffer, sizeof buffer);
                if (n <= 0)
                    break;
                for (long at = 0; at < n;) {
                    struct linux_dirent64* d = (struct linux_dirent64*)(buffer + at);
                    at += d->d_reclen;
                    if (d->d_name[0] == '.' &&
                        (d->d_name[1] == 0 || (d->d_name[1] == '.' && d->d_name[2] == 0)))
                        continue;
                    struct stat st;
                    if (fstatat(fd, d->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0)
                        continue;
                    ++mine;
                    if (readFiles && S_ISREG(st.st_mode) && st.st_size > 0)
                        readFile(fd, d->d_name, block, blockSize);
                    if (S_ISDIR(st.st_mode)) {
                        size_t nameLength = strlen(d->d_name);
                        char* child = malloc(length + nameLength + 2);
                        memcpy(child, path, length);
                        child[length] = '/';
                        memcpy(child + length + 1, d->d_name, nameLength + 1);
                        pthread_mutex_lock(&lock);
                        push(child);
                        pthread_cond_signal(&more);
                        pthread_mutex_unlock(&lock);
                    }
                }
            }
            close(fd);
        }
        free(path);
        pthread_mutex_lock(&lock);
        --busy;
        if (stackSize == 0 && busy == 0)
            pthread_cond_broadcast(&more);
        pthread_mutex_unlock(&lock);
    }
    pthread_mutex_lock(&lock);
    items += mine;
    pthread_mutex_unlock(&lock);
    free(block);
    return NULL;
}

int main(int argc, char** argv) {
    int threads = 1;
    int opt;
    while ((opt = getopt(argc, argv, "t:r")) != -1) {
        if (opt == 't')
            threads = atoi(optarg);
        else if (opt == 'r')
            readFiles = 1;
    }
    if (optind >= argc || threads < 1) {
        fprintf(stderr, "usage: %s [-t THREADS] [-r] FOLDER\n", argv[0]);
        return 2;
    }
    push(strdup(argv[optind]));
    pthread_t* ids = calloc((size_t)threads, sizeof *ids);
    for (int i = 0; i < threads; ++i)
        pthread_create(&ids[i], NULL, walk, NULL);
    for (int i = 0; i < threads; ++i)
        pthread_join(ids[i], NULL);
    printf("%lld\n", items);
    return 0;
}
