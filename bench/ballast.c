/* Makes an agent as large as one is told: "ballastMebibytes N" in snmpd.conf,
 * in pieces as small as those of an agent with many rows. */
#include <stdlib.h>
#include <string.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#define PIECE 768

static void parse(const char *token, char *line) {
    const size_t octets = strtoul(line, NULL, 10) << 20;

    (void)token;
    for (size_t i = 0; i < octets / PIECE; i++) {
        char *const piece = malloc(PIECE);

        if (piece != NULL)
            memset(piece, 1, PIECE);
    }
}

void init_ballast(void);

__attribute__((visibility("default"))) void init_ballast(void) {
    register_app_config_handler("ballastMebibytes", parse, NULL, "N");
}
