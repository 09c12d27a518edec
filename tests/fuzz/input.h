// The octets of one fuzzer input, taken from the front. Behind the end there
// are zeroes: every input is a whole one.
#ifndef TESTS_FUZZ_INPUT_H
#define TESTS_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

class Input {
  public:
    Input(const uint8_t *octets, size_t size) : next_(octets), left_(size) {}

    bool empty() const {
        return left_ == 0;
    }
    uint8_t octet() {
        if (left_ == 0)
            return 0;
        left_--;
        return *next_++;
    }
    // 0 to below - 1.
    unsigned choice(unsigned below) {
        return octet() % below;
    }
    uint32_t word() {
        uint32_t value = 0;
        for (int i = 0; i < 4; i++)
            value = value << 8 | octet();
        return value;
    }
    // At most `length` octets; fewer at the end.
    std::string octets(size_t length) {
        length = std::min(length, left_);
        std::string taken(reinterpret_cast<const char *>(next_), length);
        next_ += length;
        left_ -= length;
        return taken;
    }
    std::string rest() {
        return octets(left_);
    }

  private:
    const uint8_t *next_;
    size_t left_;
};

} // namespace fuzz

#endif
