// What a copy process inherits from the agent and must not keep.
#ifndef HOST_AGENT_DESCRIPTORS_H
#define HOST_AGENT_DESCRIPTORS_H

namespace xfhost {

// In a forked child: closes the descriptors that are the agent's business, its
// sockets and pipes above all, so that an agent that ends is gone at once and
// another one can take its port. What remains does not reach another program:
// logs and other files that have a name, and `kept`. Standard input becomes
// empty. False with errno set if that cannot be done.
bool shed_descriptors(int kept);

} // namespace xfhost

#endif
