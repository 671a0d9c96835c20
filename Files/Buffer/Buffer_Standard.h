#pragma once

#include "Files/Buffer/IBuffer.h"

/// The buffer that the host makes by default. What it can do is IBuffer's.
class Buffer_Standard : public IBuffer {
public:
    using IBuffer::IBuffer;
};
