// EnHijo.h - runs a piece of a test in a forked child whose files may not
// grow past a limit: a write beyond it fails with EFBIG (SIGXFSZ is
// ignored) instead of killing the process, and the limit dies with the
// child.
#ifndef VARDA_TESTS_FILE_ENHIJO_H
#define VARDA_TESTS_FILE_ENHIJO_H

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

// The child's answer: 0 when `cuerpo` returned 0 (every check held), else
// the number it returned (which check failed); -1 when it did not end by
// itself.
inline int EnHijoConLimite(long long limite, const std::function<int()>& cuerpo) {
  pid_t pid = ::fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit rl;
    rl.rlim_cur = rl.rlim_max = static_cast<rlim_t>(limite);
    if (::setrlimit(RLIMIT_FSIZE, &rl) != 0) ::_exit(99);
    ::_exit(cuerpo());
  }
  int estado = 0;
  if (::waitpid(pid, &estado, 0) != pid || !WIFEXITED(estado)) return -1;
  return WEXITSTATUS(estado);
}

#endif
