#include "os/descriptor.h"

#include <unistd.h>

namespace os {

Descriptor::~Descriptor() {
  if (number_ >= 0) ::close(number_);
}

}  // namespace os
