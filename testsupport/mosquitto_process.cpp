#include "testsupport/mosquitto_process.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

namespace rt::test {

int BoundLoopbackSocket(int* port) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof addr;
    ::bind(fd, reinterpret_cast<sockaddr*>(&addr), size);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &size);
    *port = ntohs(addr.sin_port);
    return fd;
}

int FreeLoopbackPort() {
    int port = 0;
    ::close(BoundLoopbackSocket(&port));
    return port;
}

bool MosquittoProcess::Installed() {
    return ::access(kBroker, X_OK) == 0 && ::access("/usr/bin/mosquitto_sub", X_OK) == 0 &&
           ::access("/usr/bin/mosquitto_pub", X_OK) == 0;
}

MosquittoProcess::MosquittoProcess(bool start) : port_(FreeLoopbackPort()) {
    if (!Installed()) return;
    std::string config = dir_.file("mosquitto.conf");
    std::ofstream out(config);
    out << "listener " << port_ << " 127.0.0.1\n"
        << "allow_anonymous true\nlog_dest stderr\n"
        << "persistence true\npersistence_location " << dir_.file("") << "\n";
    // Started by root, mosquitto would become its own user, who cannot
    // write its database into our folder; it stays who we are.
    if (const passwd* user = ::getpwuid(::geteuid()); ::geteuid() == 0 && user != nullptr)
        out << "user " << user->pw_name << "\n";
    out.close();
    if (start) Start();
}

bool MosquittoProcess::Start() {
    process_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{kBroker, "-c", dir_.file("mosquitto.conf")});
    ready_ = process_->WaitForStderr(" running");
    return ready_;
}

bool MosquittoProcess::Restart() {
    process_->Signal(SIGTERM);
    process_->Wait();
    return Start();
}

std::string MosquittoProcess::FirstMessage(const std::string& topic, int timeout_s) {
    ChildProcess sub({"/usr/bin/mosquitto_sub", "-h", "127.0.0.1", "-p", std::to_string(port_),
                      "-t", topic, "-C", "1", "-W", std::to_string(timeout_s)});
    sub.Wait((timeout_s + 5) * 1000);
    std::string text = sub.Stdout();
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

bool MosquittoProcess::Send(const std::string& topic, const std::string& payload) {
    ChildProcess pub({"/usr/bin/mosquitto_pub", "-h", "127.0.0.1", "-p", std::to_string(port_),
                      "-q", "1", "-t", topic, "-m", payload});
    return pub.Wait() == 0;
}

}  // namespace rt::test
