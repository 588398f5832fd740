// An attacker who may write in a shared folder: exchanges each pair of names with one another, over
// and over, until it is killed. Usage: exchanger FROM TO [FROM TO]...
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 3 || argc % 2 == 0) return 2;
  for (;;) {
    for (int i = 1; i + 1 < argc; i += 2) {
      (void)::renameat2(AT_FDCWD, argv[i], AT_FDCWD, argv[i + 1], RENAME_EXCHANGE);
      // Now and then the other side gets its turn, wherever it is.
      if (::getpid() % 2 == 0) ::usleep(50);
    }
  }
}
