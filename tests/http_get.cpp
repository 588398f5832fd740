// Does one GET with the utility's own client and prints the status or the error.
// Usage: http_get URL HOST-WHOSE-CERTIFICATE-NEED-NOT-BE-VALID
#include "platform/network/http.h"

#include <iostream>

#include "platform/process/process.h"

int main(int argc, char** argv) {
  if (argc != 3 || !tessel::prepareProcess()) return 2;
  const auto status = tessel::httpGet(argv[1], argv[2]);
  if (status) {
    std::cout << *status << "\n";
  } else {
    std::cout << "error: " << status.error().description << "\n";
  }
  return 0;
}
