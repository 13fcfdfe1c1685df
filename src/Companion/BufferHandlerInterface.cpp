#include "Companion/BufferHandlerInterface.h"

BufferHandlerInterface::~BufferHandlerInterface() = default;
