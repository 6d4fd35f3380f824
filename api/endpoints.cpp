// The endpoint table: what the router's web API server can ask of this program. Order, paths and methods are what its
// clients know.
#include "api/endpoints.h"

#include <iterator>

#include "api/at_endpoint.h"
#include "api/brief_info_endpoints.h"
#include "api/info_endpoint.h"
#include "api/modem_info_endpoints.h"
#include "connection/config_endpoints.h"
#include "connection/firmware_upgrade.h"
#include "connection/link_endpoints.h"
#include "connection/power_endpoints.h"
#include "sms/sms_endpoints.h"
#include "sms/sms_forwarding.h"
#include "sms/sms_sending.h"

namespace {

constexpr ApiEntity ENDPOINTS[] = {
    {"/modem/info", "get", get_modem_info},
    {"/modem/brief_info", "get", get_modem_brief_info},
    {"/modem/app/brief_info", "get", get_modem_app_brief_info},
    {"/modem/auto", "post", modem_auto_connect},
    {"/modem/get", "get", get_modem_config},
    {"/modem/set", "post", set_modem_config},
    {"/modem/enable", "post", enable_modem},
    {"/modem/reset", "post", reset_modem},
    {"/modem/at", "post", execute_modem_at},
    {"/modem/sms/list", "get", list_modem_sms},
    {"/modem/sms/delete", "post", delete_modem_sms},
    {"/modem/sms/delete_all", "post", delete_all_modem_sms},
    {"/modem/sms/send", "post", send_modem_sms},
    {"/modem/sms/status", "post", modem_sms_status},
    {"/modem/sms/code", "post", modem_sms_code},
    {"/modem/cells/get", "post", modem_get_cells},
    {"/modem/sim/switch", "post", modem_sim_switch},
    {"/modem/modem_info/get", "post", modem_get_modem_info},
    {"/modem/sms/forward", "post", modem_sms_forward},
    {"/modem/sms/flist", "get", modem_sms_forward_get},
    {"/modem/sms/account", "post", modem_forward_account},
    {"/modem/upgrade", "post", modem_upgrade},
    {"/modem/upgrade_status", "post", modem_upgrade_status},
};

static_assert(std::size(ENDPOINTS) == API_ENTITY_COUNT);

} // namespace

const ApiEntity *get_api_entity(uint32_t *count) {
    *count = API_ENTITY_COUNT;
    return ENDPOINTS;
}
