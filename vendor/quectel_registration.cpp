// Registration of a Quectel modem; see quectel_registration.h.
#include "vendor/quectel_registration.h"

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "modem/modem_core/registration.h"

namespace {

constexpr size_t REPLY_SIZE = 256;

// Either will do, and the second is asked only where the first does not.
constexpr char QUESTIONS[][10] = {"AT+CREG?", "AT+CEREG?"};

} // namespace

int quectel_check_register(const ModemModel &model) {
    for (const char *question : QUESTIONS) {
        char reply[REPLY_SIZE] = {};
        if (at_query_ok(model, question, reply) == 0 && is_registered(reply)) {
            return 0;
        }
    }
    return -1;
}
