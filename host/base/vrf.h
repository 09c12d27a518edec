// VRFs: network namespaces below /run/netns and Linux VRF devices.
#ifndef HOST_BASE_VRF_H
#define HOST_BASE_VRF_H

#include <cstdint>
#include <string>
#include <string_view>

namespace xfhost {

// The network that the caller is in. No VRF device has it: interface 1 is the
// loopback interface. The storage pod names its network by the same number.
constexpr int32_t own_network_id = 1;

struct Vrf {
    enum class Kind { own_network, name_space, device };
    Kind kind = Kind::own_network;
    std::string name; // empty for the caller's own network
    int32_t id = own_network_id;
};

// Whether a text can be a VRF's name: 1 to 32 letters, digits and "_.:-", the
// first one a letter, a digit or "_".
bool valid_vrf_name(std::string_view name);

// The id of a VRF, above 0; 0 if there is none of that name. A device has its
// interface index; a namespace a number from its name, 2^30 or more, the same
// on every start. "management" is the setting management_vrf if that is set,
// else the VRF of that name, else the caller's own network.
int32_t vrf_id(std::string_view name);

// The VRF with that id; false if there is none.
bool find_vrf(int32_t id, Vrf &vrf);

// Moves this thread into a namespace, or does nothing for the own network and
// where it is already.
// Returns 0 or an error number; ENOTSUP for a device, which only a program can
// be started in.
int enter_vrf(const Vrf &vrf);

// Starts this process's program again in a namespace, with the same arguments,
// through the program xfvrf: that may enter where this process may not. Returns
// only to tell an error number.
int start_again_in_vrf(const Vrf &vrf, char *const *argv);

// Replaces this process by a program that runs in the VRF. `arguments` are as
// for execvp, NULL behind the last. Returns only to tell an error number.
int run_in_vrf(const Vrf &vrf, char *const *arguments);

} // namespace xfhost

#endif
