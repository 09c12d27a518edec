#include "host/qsh/frr_words.h"

#include <algorithm>
#include <iterator>

namespace xfhost {
namespace {

using enum FrrBlock;

struct Vocabulary {
    FrrBlock block;
    std::string_view words;
};

// From vtysh's `list` in each block, with all daemons running, and what it
// takes beyond that (`router-id` for an OSPF router, for example); less what is
// no configuration (clear, copy, do, end, exit, find, list, output, quit, show,
// terminal, write) and the blocks that are not in the table below. A version of
// FRR with more words has those lines refused, not misread.
constexpr Vocabulary vocabularies[] = {
    {top, "access-list agentx allow-external-route-update "
          "allow-reserved-ranges banner bfd bgp debug domainname dump enable "
          "evpn fpm frr hostname interface ip ipv6 key l2vpn line log mac mpls "
          "nexthop-group nhrp password pbr pbr-map pseudowire route-map router "
          "router-id segment-routing service username vni vrf vrrp zebra"},
    {bgp, "address-family aggregate-address auto-summary bgp coalesce-time "
          "distance maximum-paths neighbor network rd read-quanta redistribute "
          "synchronization table-map timers update-delay write-quanta"},
    {bgp_family, "aggregate-address bgp distance export import label "
                 "local-install maximum-paths neighbor network nexthop rd "
                 "redistribute route-map route-target route-target6 rt rt6 sid "
                 "table-map"},
    {bgp_evpn, "advertise advertise-all-vni advertise-default-gw advertise-pip "
               "advertise-svi-ip autort default-originate disable-ead-evi-rx "
               "disable-ead-evi-tx dup-addr-detection ead-es-frag "
               "ead-es-route-target enable-resolve-overlay-index flooding "
               "neighbor network rd route-target use-es-l3nhg vni"},
    {bgp_vni, "advertise-default-gw advertise-svi-ip rd route-target"},
    {ospf, "aggregation area auto-cost capability compatible "
           "default-information default-metric distance distribute-list "
           "fast-reroute graceful-restart log-adjacency-changes max-metric "
           "maximum-paths mpls mpls-te neighbor network ospf passive-interface "
           "pce proactive-arp redistribute refresh router-id router-info "
           "segment-routing summary-address timers write-multiplier"},
    {ospf6, "aggregation area auto-cost default-information distance "
            "graceful-restart log-adjacency-changes maximum-paths ospf6 "
            "redistribute stub-router summary-address timers "
            "write-multiplier"},
    {isis, "area-password attached-bit default-information domain-password "
           "fast-reroute hostname is-type log-adjacency-changes "
           "lsp-gen-interval lsp-mtu lsp-refresh-interval lsp-timers "
           "max-lsp-lifetime metric-style mpls mpls-te net purge-originator "
           "redistribute segment-routing set-overload-bit spf spf-delay-ietf "
           "spf-interval topology"},
    {rip, "allow-ecmp default-information default-metric distance "
          "distribute-list neighbor network offset-list passive-interface "
          "redistribute route route-map timers version"},
    {ripng, "aggregate-address allow-ecmp default-information default-metric "
            "ipv6 network offset-list passive-interface redistribute route "
            "timers"},
    {eigrp, "eigrp maximum-paths metric neighbor network passive-interface "
            "redistribute timers variance"},
    {babel, "babel distribute-list ipv6 network redistribute"},
    {openfabric, "default-information domain-password fabric-tier "
                 "log-adjacency-changes lsp-gen-interval lsp-mtu "
                 "lsp-refresh-interval max-lsp-lifetime net purge-originator "
                 "redistribute set-overload-bit spf-delay-ietf spf-interval "
                 "topology triggered-csnp-delay"},
    {interface, "babel bandwidth debug delay description eigrp evpn ip ipv6 "
                "isis link-detect link-params mpls multicast openfabric ospf "
                "pbr-policy shutdown tunnel vrrp"},
    {link_params, "admin-grp ava-bw delay delay-variation enable max-bw "
                  "max-rsv-bw metric neighbor packet-loss res-bw unrsv-bw "
                  "use-bw"},
    {vrf, "ip ipv6 netns router-id vni"},
    {route_map, "call continue description match on-match set"},
    {key_chain, "key"},
    {key, "accept-lifetime cryptographic-algorithm key-string send-lifetime"},
    {line_vty, "access-class exec-timeout ipv6 login"},
    {bfd, "peer profile"},
    {bfd_peer, "detect-multiplier echo echo-interval echo-mode minimum-ttl "
               "passive-mode profile receive-interval shutdown "
               "transmit-interval"},
    {bfd_profile, "detect-multiplier echo echo-interval echo-mode minimum-ttl "
                  "passive-mode receive-interval shutdown transmit-interval"},
    {nexthop_group, "backup-group nexthop"},
    {pbr_map, "match set strip"},
    {pseudowire, "control-word mpls neighbor"},
    {l2vpn, "bridge member mtu vc"},
    {l2vpn_member, "control-word neighbor pw-id pw-status"},
    {ldp, "address-family discovery dual-stack neighbor ordered-control "
          "router-id wait-for-sync"},
    {ldp_family, "discovery interface label neighbor session ttl-security"},
    {ldp_interface, "discovery"},
    {segment_routing, "traffic-eng"},
    {traffic_eng, "mpls-te policy segment-list"},
    {segment_list, "index"},
    {policy, "binding-sid candidate-path name"},
    {candidate_path, "affinity bandwidth metric objective-function"},
};

struct Header {
    FrrBlock in;
    std::string_view begins; // its first words, in full
    size_t least;            // number of words that it has at least
    FrrBlock opens;
};

// The longer one first where one begins like another.
constexpr Header headers[] = {
    {top, "router bgp", 2, bgp},
    {top, "router ospf", 2, ospf},
    {top, "router ospf6", 2, ospf6},
    {top, "router isis", 3, isis},
    {top, "router rip", 2, rip},
    {top, "router ripng", 2, ripng},
    {top, "router eigrp", 3, eigrp},
    {top, "router babel", 2, babel},
    {top, "router openfabric", 3, openfabric},
    {top, "interface", 2, interface},
    {top, "vrf", 2, vrf},
    {top, "route-map", 4, route_map},
    {top, "key chain", 3, key_chain},
    {top, "line vty", 2, line_vty},
    {top, "bfd", 1, bfd},
    {top, "nexthop-group", 2, nexthop_group},
    {top, "pbr-map", 4, pbr_map},
    {top, "pseudowire", 2, pseudowire},
    {top, "l2vpn", 4, l2vpn},
    {top, "mpls ldp", 2, ldp},
    {top, "segment-routing", 1, segment_routing},
    {bgp, "address-family l2vpn", 3, bgp_evpn},
    {bgp, "address-family", 2, bgp_family},
    {bgp_evpn, "vni", 2, bgp_vni},
    {interface, "link-params", 1, link_params},
    {key_chain, "key", 2, key},
    {bfd, "peer", 2, bfd_peer},
    {bfd, "profile", 2, bfd_profile},
    {l2vpn, "member pseudowire", 3, l2vpn_member},
    {ldp, "address-family", 2, ldp_family},
    {ldp_family, "interface", 2, ldp_interface},
    {segment_routing, "traffic-eng", 1, traffic_eng},
    {traffic_eng, "segment-list", 2, segment_list},
    {traffic_eng, "policy", 2, policy},
    {policy, "candidate-path", 2, candidate_path},
};

bool begins(const FrrWords &words, std::string_view text) {
    for (std::string_view word : words) {
        if (!text.starts_with(word))
            return false;
        text.remove_prefix(word.size());
        if (text.empty())
            return true;
        if (text.front() != ' ')
            return false;
        text.remove_prefix(1);
    }
    return false;
}

constexpr const char *file_reason =
    "FRR would open a file or socket (frr_file_commands)";

bool one_of(std::string_view word, std::initializer_list<const char *> known) {
    return std::find(known.begin(), known.end(), word) != known.end();
}

} // namespace

bool frr_has_word(FrrBlock block, std::string_view word) {
    for (const Vocabulary &each : vocabularies) {
        if (each.block != block)
            continue;
        for (std::string_view rest = each.words; !rest.empty();) {
            size_t end = std::min(rest.find(' '), rest.size());
            if (rest.substr(0, end) == word)
                return true;
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    return false;
}

FrrBlock frr_opens(FrrBlock block, const FrrWords &words) {
    for (const Header &header : headers)
        if (header.in == block && words.size() >= header.least &&
            begins(words, header.begins))
            return header.opens;
    return none;
}

bool frr_shortened(FrrBlock block, const FrrWords &words) {
    if (words.size() < 2 || frr_opens(block, words) != none)
        return false;
    return std::any_of(
        std::begin(headers), std::end(headers), [&](const Header &header) {
            size_t blank = header.begins.find(' ');
            return header.in == block && blank != std::string_view::npos &&
                   header.begins.substr(0, blank) == words[0] &&
                   header.begins.substr(blank + 1).starts_with(words[1]) &&
                   words.size() >= header.least;
        });
}

bool frr_closes(std::string_view word, FrrBlock block) {
    if (word == "exit" || word == "quit")
        return true;
    if (word == "exit-address-family")
        return block == bgp_family || block == bgp_evpn || block == ldp_family;
    if (word == "exit-ldp-if")
        return block == ldp_interface;
    return (word == "exit-vrf" && block == vrf) ||
           (word == "exit-vni" && block == bgp_vni) ||
           (word == "exit-link-params" && block == link_params) ||
           (word == "exit-route-map" && block == route_map);
}

const char *frr_opens_file(const FrrWords &words) {
    std::string_view second = words.size() > 1 ? words[1] : "";
    std::string_view third = words.size() > 2 ? words[2] : "";
    if (words[0] == "dump" || words[0] == "netns" ||
        (words[0] == "nhrp" &&
         !one_of(second, {"nflog-group", "multicast-nflog-group"})) ||
        (words[0] == "banner" && !one_of(third, {"default", "line"})) ||
        (words[0] == "log" &&
         !one_of(second, {"syslog", "stdout", "timestamp", "facility",
                          "record-priority", "error-category", "filter-text",
                          "immediate-mode", "unique-id"})))
        return file_reason;
    return nullptr;
}

bool frr_never_refused(FrrBlock opened, const FrrWords &words) {
    constexpr size_t longest_interface = 15;
    switch (opened) {
    case route_map:
    case line_vty:
        return true;
    case interface:
        return words.size() == 2 && words[1].size() <= longest_interface;
    case bgp_family:
        return words.size() == 3 && one_of(words[1], {"ipv4", "ipv6"}) &&
               one_of(words[2], {"unicast", "multicast"});
    default:
        return false;
    }
}

} // namespace xfhost
