// A buffer's bytes, mapped for as long as the object lives (or until unmap()).
#pragma once

#include <gst/gst.h>

class BufferMap {
 public:
  BufferMap(GstBuffer* buffer, GstMapFlags flags) {
    // Nearly every buffer is one memory, which maps in half the time of a buffer.
    const bool single = gst_buffer_n_memory(buffer) == 1;
    GstMemory* memory = single ? gst_buffer_peek_memory(buffer, 0) : nullptr;
    if (memory && gst_memory_map(memory, &info_, flags)) {
      memory_ = memory;
    } else if (gst_buffer_map(buffer, &info_, flags)) {
      buffer_ = buffer;
    }
  }
  ~BufferMap() { unmap(); }
  BufferMap(const BufferMap&) = delete;
  BufferMap& operator=(const BufferMap&) = delete;

  explicit operator bool() const { return memory_ || buffer_; }
  guint8* data() const { return info_.data; }
  gsize size() const { return *this ? info_.size : 0; }

  void unmap() {
    if (memory_) gst_memory_unmap(memory_, &info_);
    if (buffer_) gst_buffer_unmap(buffer_, &info_);
    memory_ = nullptr;
    buffer_ = nullptr;
  }

 private:
  GstMapInfo info_{};
  GstMemory* memory_ = nullptr;
  GstBuffer* buffer_ = nullptr;  // when it is not one memory
};
