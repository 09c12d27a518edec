// Has the history written to the disk without anybody waiting for it.
#ifndef HOST_HISTORY_SYNCER_H
#define HOST_HISTORY_SYNCER_H

#include <atomic>

namespace xfhost {

// Each round is a thread's, which ends when nothing more is asked for: a
// process that forks meanwhile leaves behind no lock in its child, and after an
// agent's way to the background there is a thread as before. The object has to
// live as long as the process.
class Syncer {
  public:
    // What was appended in this directory so far is on the disk soon. Does not
    // wait. False if there is no thread to be had; then it is later.
    bool ask(int directory);

    // The error number of a round that failed, once; 0 if none did.
    int take_error() {
        return error_.exchange(0);
    }

    // Whether no round is under way.
    bool idle() const {
        return state_ == State::idle;
    }

  private:
    enum class State { idle, busy, asked_again };
    void work();

    std::atomic<State> state_ = State::idle;
    std::atomic<int> directory_ = -1;
    std::atomic<int> error_ = 0;
};

} // namespace xfhost

#endif
