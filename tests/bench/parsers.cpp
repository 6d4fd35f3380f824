// Times the functions that read what others wrote: the APN database, and the replies of modems. Part of `./run bench`.
//
//   parsers apn FILE MCC MNC     prints READ FIND FOUND: nanoseconds to load the database, nanoseconds to find the
//                                entries of a network in it, and how many those are
//   parsers reply READER FILE    prints TIME FOUND: nanoseconds that a reader takes for the reply in the file, and 1
//                                where it found in it what it looks for, else 0
//
// Times are CPU time of one call, the median of several batches. What a call makes is released within it.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <span>

#include "modem/at_reply.h"
#include "modem/modem_core/carrier.h"
#include "modem/modem_core/identity.h"
#include "modem/modem_core/mode_band.h"
#include "modem/modem_core/registration.h"
#include "modem/modem_core/signal.h"
#include "platform/owners.h"
#include "vendor/apn_database.h"
#include "vendor/quectel_cells.h"
#include "vendor/quectel_signal.h"

namespace {

constexpr size_t BATCHES = 5;
constexpr double BATCH_NANOSECONDS = 20e6; // long beside the clock's own cost, and beside the timer's tick
constexpr size_t BUFFER_SIZE = 4096;

double cpu_nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

template <typename Function> double time_of_batch(size_t calls, const Function &function) {
    const double begin = cpu_nanoseconds();
    for (size_t call = 0; call < calls; call++) {
        function();
    }
    return cpu_nanoseconds() - begin;
}

// Nanoseconds of one call. The batches are made long enough first, which warms the caches as well.
template <typename Function> double time_of_call(const Function &function) {
    size_t calls = 1;
    while (time_of_batch(calls, function) < BATCH_NANOSECONDS) {
        calls *= 2;
    }
    std::array<double, BATCHES> times{};
    for (double &time : times) {
        time = time_of_batch(calls, function) / static_cast<double>(calls);
    }
    std::sort(times.begin(), times.end());
    return times[BATCHES / 2];
}

int time_apn_lookup(const char *file, const char *mcc, const char *mnc) {
    json_object *loaded = nullptr;
    const double read = time_of_call([&] { parse_apn_database(file, &loaded); });
    const Json database(loaded);
    int found = -1;
    const double find = time_of_call([&] {
        const Json entries(json_object_new_array());
        found = find_apns(database.get(), mcc, mnc, entries.get());
    });
    printf("%.1f %.1f %d\n", read, find, found);
    return 0;
}

struct Reader {
    const char *name;
    // Whether the reply held what the reader looks for.
    bool (*read)(const char *reply);
};

template <auto Read> bool into_array(const char *reply) {
    const Json array(json_object_new_array());
    Read(reply, array.get());
    return json_object_array_length(array.get()) > 0;
}

template <auto Read> bool into_object(const char *reply) {
    const Json object(json_object_new_object());
    Read(reply, object.get());
    return json_object_object_length(object.get()) > 0;
}

template <auto Read> bool into_signals(const char *reply) {
    const Json signals(json_object_new_array());
    int32_t level = -1;
    return Read(reply, signals.get(), &level) > 0;
}

template <auto Read, size_t Size = BUFFER_SIZE> bool into_text(const char *reply) {
    static char text[Size];
    return Read(reply, std::span<char>(text)) == 0;
}

// A SIM that needs a PIN is an answer as well: only a reply that says nothing leaves the text empty.
bool sim_state(const char *reply) {
    char text[BUFFER_SIZE];
    text[0] = '\0';
    read_sim_state(reply, text);
    return text[0] != '\0';
}

constexpr Reader READERS[] = {
    {"read_quectel_signals", into_signals<read_quectel_signals>},
    {"read_ep06_signals", into_signals<read_ep06_signals>},
    {"read_quectel_serving_cells", into_array<read_quectel_serving_cells>},
    {"read_quectel_neighbour_cells", into_array<read_quectel_neighbour_cells>},
    {"read_quectel_carriers", into_array<read_quectel_carriers>},
    {"read_quectel_mode", [](const char *reply) { return read_quectel_mode(reply) != nullptr; }},
    {"read_band_configuration", into_object<read_band_configuration>},
    {"read_csq", [](const char *reply) { return read_csq(reply) >= 0; }},
    {"read_register_status", [](const char *reply) { return read_register_status(reply) >= 0; }},
    {"read_sim_state", sim_state},
    {"parse_imei", into_text<parse_imei>},
    {"parse_identity", into_text<parse_identity, IDENTITY_SIZE>},
    {"parse_first_digits", into_text<parse_first_digits, IMSI_LENGTH>},
    {"parse_operator_name", into_text<parse_operator_name>},
    {"is_ok", [](const char *reply) { return is_ok(reply) != 0; }},
};

int time_reader(const char *name, const char *file_name) {
    static char reply[BUFFER_SIZE];
    const File file(fopen(file_name, "rb"));
    if (file == nullptr || fread(reply, 1, sizeof reply - 1, file.get()) == 0) {
        perror(file_name);
        return 1;
    }
    for (const Reader &reader : READERS) {
        if (strcmp(reader.name, name) == 0) {
            printf("%.2f %d\n", time_of_call([&] { reader.read(reply); }), reader.read(reply) ? 1 : 0);
            return 0;
        }
    }
    fprintf(stderr, "parsers: no reader %s\n", name);
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 5 && strcmp(argv[1], "apn") == 0) {
        return time_apn_lookup(argv[2], argv[3], argv[4]);
    }
    if (argc == 4 && strcmp(argv[1], "reply") == 0) {
        return time_reader(argv[2], argv[3]);
    }
    fputs("Usage: parsers apn FILE MCC MNC | parsers reply READER FILE\n", stderr);
    return 2;
}
