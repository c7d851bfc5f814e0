// The best few of many candidates.
#pragma once

namespace g729 {
inline namespace KELG729F_TARGET {

// Keeps the `room` candidates of least error, the best first; among equals the first one stays.
// room is 1..kMost.
template <typename T, int kMost>
class Pool {
 public:
  struct Entry {
    double error;
    T value;
  };

  explicit Pool(int room) : room_(room) {}

  void offer(double error, const T& value) {
    if (size_ == room_ && !(error < entry_[size_ - 1].error)) return;
    int i = size_ < room_ ? size_++ : size_ - 1;
    for (; i > 0 && error < entry_[i - 1].error; --i) entry_[i] = entry_[i - 1];
    entry_[i] = {error, value};
  }

  const Entry* begin() const { return entry_; }
  const Entry* end() const { return entry_ + size_; }
  int size() const { return size_; }
  const Entry& operator[](int i) const { return entry_[i]; }

 private:
  const int room_;
  int size_ = 0;
  Entry entry_[kMost];
};

}  // namespace KELG729F_TARGET
}  // namespace g729
