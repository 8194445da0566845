// A descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace tools {

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}  // -1: none.
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }

  int Get() const { return number_; }

 private:
  int number_;
};

}  // namespace tools
