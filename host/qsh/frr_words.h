// Which lines FRR's configuration has, as far as the shell has to know it: the
// blocks, the lines that open them, and the words that lines begin with.
#ifndef HOST_QSH_FRR_WORDS_H
#define HOST_QSH_FRR_WORDS_H

#include <string>
#include <string_view>
#include <vector>

namespace xfhost {

enum class FrrBlock {
    none, // of a line that opens no block
    top,
    bgp,
    bgp_family,
    bgp_evpn,
    bgp_vni,
    ospf,
    ospf6,
    isis,
    rip,
    ripng,
    eigrp,
    babel,
    openfabric,
    interface,
    link_params,
    vrf,
    route_map,
    key_chain,
    key,
    line_vty,
    bfd,
    bfd_peer,
    bfd_profile,
    nexthop_group,
    pbr_map,
    pseudowire,
    l2vpn,
    l2vpn_member,
    ldp,
    ldp_family,
    ldp_interface,
    segment_routing,
    traffic_eng,
    segment_list,
    policy,
    candidate_path,
};

using FrrWords = std::vector<std::string_view>;

// Whether lines of a block may begin with a word, in full. Nothing is in these
// lists that is no configuration: no abbreviation can reach it.
bool frr_has_word(FrrBlock block, std::string_view word);

// The block that a line opens in another one; none if it opens none.
FrrBlock frr_opens(FrrBlock block, const FrrWords &words);

// Whether a line is one that opens a block, but for words that are not written
// in full: FRR knows it, and what is behind it would be taken for its block's.
bool frr_shortened(FrrBlock block, const FrrWords &words);

// The block that a word such as "exit-vrf" closes; none for "exit" and "quit",
// top for one that is not known.
bool frr_closes(std::string_view word, FrrBlock block);

// Why a line of the top level does something else than configuring a router:
// it has FRR open a file or write commands to its log. NULL if it does not.
const char *frr_opens_file(const FrrWords &words);

// Whether no daemon ever refuses this line once its syntax is good.
bool frr_never_refused(FrrBlock opened, const FrrWords &words);

} // namespace xfhost

#endif
