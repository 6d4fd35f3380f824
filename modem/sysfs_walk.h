// A depth-first walk over the real directories of a tree, in directory-reading order: the one loop under all searches
// of modem/discovery.
#pragma once

#include <cstdint>

// Room for the longest path that a walk may meet.
constexpr int SYSFS_PATH_SIZE = 512;

// How many directories one walk may open.
constexpr int32_t MOST_DIRECTORIES = 1000;

// What a search does at a directory entry that is itself a directory.
enum class Visit {
    DESCEND,       // nothing found: go into it
    LEAVE,         // nothing found: leave the rest of the directory that it stands in
    FOUND_DESCEND, // count it and go into it
    FOUND_LEAVE,   // count it and leave the rest of the directory that it stands in
    FOUND_END,     // count it and end the whole walk
};

// Called for each subdirectory with the path of the directory it stands in, its name, and the search's own context.
using VisitDirectory = Visit (*)(const char *directory, const char *name, void *context);

// Walks the tree under `start`; symbolic links are not followed. `counter` counts the directories opened, from the
// caller's start value on. Returns the number of entries found, or -1 when more than MOST_DIRECTORIES would be opened
// or one cannot be. Aborts where a path does not fit SYSFS_PATH_SIZE.
int walk_directories(const char *start, int32_t *counter, VisitDirectory visit, void *context);
