#include "base/ProgramSession.h"

#include <limits>

#include <fcntl.h>
#include <unistd.h>

#include "base/FileIO.h"

namespace snipwren {
namespace {
/// One byte, far beyond the file's end, that stands for the number.
struct flock byteOf(std::uint64_t number, short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(number % static_cast<std::uint64_t>(std::numeric_limits<off_t>::max() - 1));
    lock.l_len = 1;
    return lock;
}
} // namespace

ProgramSession::ProgramSession(std::string file, std::uint64_t number)
    : file_(std::move(file)),
      number_(number == 0 ? 1 : number),
      fd_(::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, privateFileMode)) {
    struct flock lock = byteOf(number_, F_WRLCK);
    if (fd_ >= 0) (void)::fcntl(fd_, F_OFD_SETLK, &lock);
}

ProgramSession::~ProgramSession() {
    if (fd_ >= 0) ::close(fd_);
}

bool ProgramSession::isAlive(std::uint64_t number) const {
    if (number == number_) return true;
    if (fd_ < 0 || number == 0) return false;
    struct flock lock = byteOf(number, F_WRLCK);
    return ::fcntl(fd_, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}
} // namespace snipwren
