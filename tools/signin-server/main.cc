// mirelo-signin-server: serves the open platform's side of the QR-code
// sign-in over HTTPS on 127.0.0.1 until it is left idle or interrupted.
//
// It prints the port and the path of its certificate authority, then plays
// a sign-in story on the long poll: waiting (401), scanned (404), confirmed
// (405 with an authorisation code), each after a pause.  A client trusts the
// printed authority and sends open.mirelo.app and long.open.mirelo.app to
// the printed port.
#include <CLI/CLI.hpp>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "tools/signin-server/SignInServer.h"

int main(int argc, char** argv) {
  using mirelo::testing::SignInAnswer;
  using mirelo::testing::SignInServer;

  CLI::App app{"Serves the QR-code sign-in exchange over HTTPS on 127.0.0.1 for the demo and manual tests."};
  SignInServer::Options options;
  double step = 1.0;
  std::string code = "mirelo-demo-code";
  app.add_option("-p,--port", options.port, "Port on 127.0.0.1 (0: any free port)")
      ->check(CLI::Range(0, 65535));
  app.add_option("--idle", options.idleTimeoutSeconds, "Stop after this many seconds without a request")
      ->check(CLI::Range(1.0, 86400.0));
  app.add_option("--hold", options.emptyPollHoldSeconds, "Seconds an unanswered poll is held before state 408")
      ->check(CLI::Range(0.0, 120.0));
  app.add_option("--step", step, "Seconds before each answer of the story")->check(CLI::Range(0.0, 120.0));
  app.add_option("--code", code, "Authorisation code handed out at the end of the story");
  CLI11_PARSE(app, argc, argv);

  // Signals are read from a descriptor below; every thread the server
  // starts inherits the blocked mask.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const int signalFd = signalfd(-1, &signals, SFD_CLOEXEC);

  SignInServer server(options);
  if (!server.start()) {
    std::fprintf(stderr, "mirelo-signin-server: %s\n", server.error().c_str());
    return 1;
  }
  server.queuePollAnswer(SignInAnswer::slow(SignInAnswer::pollState(401), step));
  server.queuePollAnswer(SignInAnswer::slow(SignInAnswer::pollState(404), step));
  server.queuePollAnswer(SignInAnswer::slow(SignInAnswer::pollState(405, code), step));

  std::printf("port: %d\nca: %s\n", server.port(), server.caPath().c_str());
  std::fflush(stdout);

  bool interrupted = false;
  while (server.running() && !interrupted) {
    pollfd p{signalFd, POLLIN, 0};
    interrupted = signalFd >= 0 && ::poll(&p, 1, 200) > 0;
    if (signalFd < 0) server.waitUntilStopped(0.2);
  }
  if (signalFd >= 0) ::close(signalFd);
  const std::size_t served = server.requests().size();
  server.stop();
  std::fprintf(stderr, "mirelo-signin-server: %s after %zu requests\n", interrupted ? "interrupted" : "idle, stopped",
               served);
  return 0;
}
