// What a counted program has of its own: where its counters are, and a fork that does not falsify them.
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

// In place of the run-time library's. %c: the file is mapped; %m: into all processes of the program.
__attribute__((visibility("hidden"))) const char __llvm_profile_filename[] = VELA_COUNTERS;

// Of the run-time library: where the compiler put the counters, and how far from there they are mapped.
extern char *__llvm_profile_begin_counters(void);
extern char *__llvm_profile_end_counters(void);
extern __attribute__((visibility("hidden"))) long __llvm_profile_counter_bias;

pid_t counted_fork(void);

// From here on this process counts for itself, where nobody looks.
static void leave_the_counters(void) {
    const long page = sysconf(_SC_PAGESIZE);
    char *const first = __llvm_profile_begin_counters() + __llvm_profile_counter_bias;
    char *const start = first - (unsigned long)first % (unsigned long)page;
    const size_t size = (size_t)(__llvm_profile_end_counters() - __llvm_profile_begin_counters() + (first - start));
    if (mmap(start, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != start) {
        abort();
    }
}

// What the product calls in place of fork. A parent that goes on is not counted by itself: it is the difference between
// the calls of the function that forks and the children. As one call has two results, children that all count would leave
// nothing for the parents; so only those with an even number do.
pid_t counted_fork(void) {
    const pid_t child = fork();
    if (child == 0 && getpid() % 2 != 0) {
        leave_the_counters();
    }
    return child;
}
