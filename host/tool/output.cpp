// SPDX-License-Identifier: BSD-3-Clause
// Standard output, with every error noticed.
#include "host/tool/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/failure.h"

namespace tev::host::tool {

void put(const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t count = write(STDOUT_FILENO, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw failed(std::string("cannot write the output: ") + std::strerror(errno));
    done += static_cast<size_t>(count);
  }
}

}  // namespace tev::host::tool
