// A buffer's bytes, mapped for as long as the object lives (or until unmap()).
#pragma once

#include <gst/gst.h>

class BufferMap {
 public:
  BufferMap(GstBuffer* buffer, GstMapFlags flags)
      : buffer_(gst_buffer_map(buffer, &info_, flags) ? buffer : nullptr) {}
  ~BufferMap() { unmap(); }
  BufferMap(const BufferMap&) = delete;
  BufferMap& operator=(const BufferMap&) = delete;

  explicit operator bool() const { return buffer_ != nullptr; }
  guint8* data() const { return info_.data; }
  gsize size() const { return buffer_ ? info_.size : 0; }

  void unmap() {
    if (buffer_) gst_buffer_unmap(buffer_, &info_);
    buffer_ = nullptr;
  }

 private:
  GstMapInfo info_{};
  GstBuffer* buffer_;
};
