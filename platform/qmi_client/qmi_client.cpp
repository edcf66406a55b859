// The library: one transport to the modem, a thread that reads it (and
// reconnects), and synchronous exchanges matched to their answers by
// service, client id and transaction id.
#include "platform/qmi_client/qmi_client.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/common/byte_reader.h"
#include "platform/qmi_client/qmux_codec.h"
#include "platform/qmi_client/transport.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kReconnectIntervalMs = 100;
constexpr unsigned kCtlTimeoutMs = 2000;
// A release is done whatever the modem answers; a silent modem must not
// hold up a daemon that is on its way out.
constexpr unsigned kCtlReleaseTimeoutMs = 300;
constexpr size_t kReadChunk = 4096;

// Signals let in while a synchronous call waits: bit n-1 for signal n.
// Atomic, so a signal handler may clear it.
std::atomic<uint64_t> g_wait_signals{0};
constexpr int kMaskableSignals = 64;

// One request waiting for its answer; the reader thread sets done and
// pokes wake_fd (an eventfd the waiter polls).
struct Pending {
    uint8_t service = 0;
    uint8_t client_id = 0;
    uint16_t transaction = 0;
    uint16_t message_id = 0;
    bool done = false;
    int status = QMI_CLIENT_NO_ERR;
    std::vector<uint8_t> tlvs;
    int wake_fd = -1;

    void Finish() {
        done = true;
        uint64_t one = 1;
        ssize_t ignored = ::write(wake_fd, &one, sizeof one);
        (void)ignored;
    }
};

// Waits until `fd` is readable or `deadline` passes, with the signals of
// g_wait_signals let in meanwhile. A handler that returns resumes the wait.
void WaitReadable(int fd, Clock::time_point deadline) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    uint64_t let_in = g_wait_signals.load();
    for (int signal_number = 1; signal_number <= kMaskableSignals; ++signal_number) {
        if ((let_in >> (signal_number - 1)) & 1) sigdelset(&mask, signal_number);
    }
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now());
        if (left.count() <= 0) return;
        timespec timeout{static_cast<time_t>(left.count() / 1000000000),
                         static_cast<long>(left.count() % 1000000000)};
        pollfd ready{fd, POLLIN, 0};
        int n = ::ppoll(&ready, 1, &timeout, &mask);
        if (n != 0 && !(n < 0 && errno == EINTR)) return;
    }
}

struct Client {
    uint8_t service;
    uint8_t client_id;
    uint64_t connection;  // the connection the client id belongs to
    uint16_t next_transaction = 1;
    qmi_client_ind_cb ind_cb;
    void* ind_cb_data;
};

class Library {
  public:
    Library(qmux::Endpoint endpoint, std::string device, qmi_sys_event_handler handler,
            void* user_data)
        : endpoint_(std::move(endpoint)),
          device_(std::move(device)),
          handler_(handler),
          user_data_(user_data) {}

    int Start();
    void Stop();

    int GetServiceList(qmi_idl_service_object_type service_obj, qmi_service_info* info,
                       unsigned int* num_entries, unsigned int* num_services);
    int ClientInit(const qmi_service_info* info, qmi_idl_service_object_type service_obj,
                   qmi_client_ind_cb ind_cb, void* ind_cb_data, qmi_client_type* client);
    int Send(qmi_client_type client, unsigned int msg_id, const uint8_t* tlvs, size_t tlvs_len,
             std::vector<uint8_t>* response_tlvs, unsigned int timeout_ms);
    int Release(qmi_client_type client);

  private:
    void Run();
    bool Connect();
    void Disconnect();
    void Deliver(const qmux::Message& message);
    void Notify(int event);
    // Sends one message and waits for the answer with the same address.
    int Exchange(qmux::Message request, std::vector<uint8_t>* response_tlvs,
                 unsigned int timeout_ms);
    int CtlExchange(uint16_t message_id, std::vector<uint8_t> tlvs,
                    std::vector<uint8_t>* response_tlvs, unsigned timeout_ms = kCtlTimeoutMs);

    const qmux::Endpoint endpoint_;
    const std::string device_;
    const qmi_sys_event_handler handler_;
    void* const user_data_;
    qmi_sys_event_info event_info_{};

    std::thread thread_;
    int wake_[2] = {-1, -1};

    // Taken before mutex_ by whoever writes or closes the transport, so a
    // descriptor is never closed (and reused) under a writer.
    std::mutex write_mutex_;
    std::mutex mutex_;
    bool stopping_ = false;
    int fd_ = -1;
    uint64_t connection_ = 0;
    uint8_t next_ctl_transaction_ = 1;
    std::list<Pending*> pending_;
    std::map<qmi_client_type, Client> clients_;
    qmi_client_type next_handle_ = 1;
};

int Library::Start() {
    if (::pipe2(wake_, O_CLOEXEC) != 0) return QMI_CLIENT_INTERNAL_ERR;
    event_info_.device = device_.c_str();
    Connect();  // the first attempt is synchronous; the thread retries
    thread_ = std::thread([this] { Run(); });
    return QMI_CLIENT_NO_ERR;
}

void Library::Stop() {
    {
        std::lock_guard<std::mutex> hold(mutex_);
        stopping_ = true;
    }
    char byte = 0;
    ssize_t ignored = ::write(wake_[1], &byte, 1);
    (void)ignored;
    if (thread_.joinable()) thread_.join();
    Disconnect();
    ::close(wake_[0]);
    ::close(wake_[1]);
}

bool Library::Connect() {
    int fd = qmux::OpenTransport(endpoint_, wake_[0]);
    if (fd < 0) return false;
    std::lock_guard<std::mutex> hold(mutex_);
    fd_ = fd;
    ++connection_;
    return true;
}

// Closes the transport and fails every waiting request: the modem has
// forgotten their client ids.
void Library::Disconnect() {
    std::lock_guard<std::mutex> write_hold(write_mutex_);
    std::lock_guard<std::mutex> hold(mutex_);
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    for (Pending* pending : pending_) {
        pending->status = QMI_CLIENT_TRANSPORT_ERR;
        pending->Finish();
    }
}

void Library::Notify(int event) {
    if (handler_ != nullptr) handler_(event, &event_info_, user_data_);
}

void Library::Run() {
    qmux::FrameAssembler assembler;
    std::vector<uint8_t> chunk(kReadChunk);
    std::vector<uint8_t> frame;
    for (;;) {
        int fd;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            if (stopping_) return;
            fd = fd_;
        }
        pollfd fds[2] = {{wake_[0], POLLIN, 0}, {fd, POLLIN, 0}};
        if (fd < 0) {
            // Not connected: wait a moment (or for the stop) and try again.
            ::poll(fds, 1, kReconnectIntervalMs);
            {
                std::lock_guard<std::mutex> hold(mutex_);
                if (stopping_) return;
            }
            if (Connect()) {
                assembler.Clear();
                Notify(QMI_SYS_EVENT_MODEM_IN_SERVICE_IND);
            }
            continue;
        }
        if (::poll(fds, 2, -1) < 0) continue;
        if (fds[0].revents != 0) continue;  // woken: look at stopping_
        ssize_t n = ::read(fd, chunk.data(), chunk.size());
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n <= 0) {
            Disconnect();
            Notify(QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND);
            continue;
        }
        assembler.Append({chunk.data(), static_cast<size_t>(n)});
        while (assembler.Next(&frame)) {
            qmux::Message message;
            if (qmux::Decode(frame, &message) == qmux::DecodeStatus::kOk) Deliver(message);
        }
        // A device read ends on a frame's end: what is left is a bad frame,
        // and waiting for the rest of its length would swallow good ones.
        if (!endpoint_.is_stream()) assembler.Clear();
    }
}

// Hands an answer to the request waiting for it; answers nobody waits for
// (a late answer to a request that timed out) are dropped.
void Library::Deliver(const qmux::Message& message) {
    if (message.qmux_flags != qmux::kFromService) return;
    bool indication = message.is_ctl() ? message.flags == qmux::kCtlIndication
                                       : message.flags == qmux::kServiceIndication;
    if (indication) {
        qmi_client_ind_cb callback = nullptr;
        void* data = nullptr;
        qmi_client_type handle = 0;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            for (const auto& [h, client] : clients_) {
                if (client.service == message.service && client.client_id == message.client_id &&
                    client.connection == connection_) {
                    callback = client.ind_cb;
                    data = client.ind_cb_data;
                    handle = h;
                }
            }
        }
        if (callback != nullptr) {
            callback(handle, message.message_id, message.tlvs.data(),
                     static_cast<unsigned>(message.tlvs.size()), data);
        }
        return;
    }
    std::lock_guard<std::mutex> hold(mutex_);
    for (Pending* pending : pending_) {
        if (!pending->done && pending->service == message.service &&
            pending->client_id == message.client_id &&
            pending->transaction == message.transaction &&
            pending->message_id == message.message_id) {
            pending->tlvs = message.tlvs;
            pending->Finish();
            return;
        }
    }
}

int Library::Exchange(qmux::Message request, std::vector<uint8_t>* response_tlvs,
                      unsigned int timeout_ms) {
    Pending pending;
    pending.service = request.service;
    pending.client_id = request.client_id;
    pending.transaction = request.transaction;
    pending.message_id = request.message_id;
    std::vector<uint8_t> frame = qmux::Encode(request);
    if (frame.empty()) return QMI_CLIENT_INTERNAL_ERR;
    pending.wake_fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (pending.wake_fd < 0) return QMI_CLIENT_INTERNAL_ERR;
    struct CloseWake {
        int fd;
        ~CloseWake() { ::close(fd); }
    } close_wake{pending.wake_fd};
    {
        std::lock_guard<std::mutex> write_hold(write_mutex_);
        int fd;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            fd = fd_;
            if (fd < 0) return QMI_CLIENT_TRANSPORT_ERR;
            pending_.push_back(&pending);
        }
        if (!qmux::WriteFrame(fd, endpoint_, frame.data(), frame.size())) {
            std::lock_guard<std::mutex> hold(mutex_);
            pending_.remove(&pending);
            return QMI_CLIENT_TRANSPORT_ERR;
        }
    }
    // Waited for with no lock held, so a signal let in may end the process
    // from its handler meanwhile.
    WaitReadable(pending.wake_fd, Clock::now() + std::chrono::milliseconds(timeout_ms));
    std::lock_guard<std::mutex> hold(mutex_);
    pending_.remove(&pending);
    if (!pending.done) return QMI_CLIENT_TIMEOUT_ERR;
    if (pending.status != QMI_CLIENT_NO_ERR) return pending.status;
    *response_tlvs = std::move(pending.tlvs);
    return QMI_CLIENT_NO_ERR;
}

int Library::CtlExchange(uint16_t message_id, std::vector<uint8_t> tlvs,
                         std::vector<uint8_t>* response_tlvs, unsigned timeout_ms) {
    qmux::Message request;
    request.service = qmux::kCtlService;
    request.flags = qmux::kCtlRequest;
    request.message_id = message_id;
    request.tlvs = std::move(tlvs);
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (next_ctl_transaction_ == 0) next_ctl_transaction_ = 1;
        request.transaction = next_ctl_transaction_++;
    }
    return Exchange(std::move(request), response_tlvs, timeout_ms);
}

int Library::GetServiceList(qmi_idl_service_object_type service_obj, qmi_service_info* info,
                            unsigned int* num_entries, unsigned int* num_services) {
    if (service_obj == nullptr || info == nullptr || num_entries == nullptr ||
        num_services == nullptr || *num_entries == 0) {
        return QMI_CLIENT_INTERNAL_ERR;
    }
    std::vector<uint8_t> response;
    int rc = CtlExchange(qmux::kCtlGetVersionInfo, {}, &response);
    if (rc != QMI_CLIENT_NO_ERR) return rc;
    std::optional<qmux::Result> result = qmux::ReadResult(response);
    std::optional<qmux::Tlv> list = qmux::FindTlv(response, qmux::kCtlArgumentTlv);
    if (!result || !list) return QMI_CLIENT_BAD_RESPONSE;
    if (result->result != 0) return QMI_CLIENT_SERVICE_NOT_FOUND;
    // Service list: count, then (service u8, major u16, minor u16) each.
    rt::ByteReader reader(list->value);
    uint8_t count = 0;
    if (!reader.U8(&count)) return QMI_CLIENT_BAD_RESPONSE;
    for (unsigned i = 0; i < count; ++i) {
        uint8_t service = 0;
        uint16_t major = 0, minor = 0;
        if (!reader.U8(&service) || !reader.U16(&major) || !reader.U16(&minor)) {
            return QMI_CLIENT_BAD_RESPONSE;
        }
        if (service == service_obj->service_id) {
            info[0] = {service, major, minor, 0};
            *num_entries = 1;
            *num_services = 1;
            return QMI_CLIENT_NO_ERR;
        }
    }
    *num_entries = 0;
    *num_services = 0;
    return QMI_CLIENT_SERVICE_NOT_FOUND;
}

int Library::ClientInit(const qmi_service_info* info, qmi_idl_service_object_type service_obj,
                        qmi_client_ind_cb ind_cb, void* ind_cb_data, qmi_client_type* client) {
    if (info == nullptr || service_obj == nullptr || client == nullptr ||
        info->service_id != service_obj->service_id || info->service_id > 0xFF) {
        return QMI_CLIENT_INTERNAL_ERR;
    }
    uint8_t service = static_cast<uint8_t>(info->service_id);
    std::vector<uint8_t> request;
    qmux::AppendTlv(&request, qmux::kCtlArgumentTlv, std::vector<uint8_t>{service});
    std::vector<uint8_t> response;
    uint64_t connection;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        connection = connection_;
    }
    int rc = CtlExchange(qmux::kCtlGetClientId, std::move(request), &response);
    if (rc != QMI_CLIENT_NO_ERR) return rc;
    std::optional<qmux::Result> result = qmux::ReadResult(response);
    if (!result) return QMI_CLIENT_BAD_RESPONSE;
    if (result->result != 0) return QMI_CLIENT_ALLOC_FAILURE;
    std::optional<qmux::Tlv> assigned = qmux::FindTlv(response, qmux::kCtlArgumentTlv);
    rt::ByteReader reader(assigned ? assigned->value : std::span<const uint8_t>{});
    uint8_t got_service = 0, client_id = 0;
    if (!reader.U8(&got_service) || !reader.U8(&client_id) || got_service != service) {
        return QMI_CLIENT_BAD_RESPONSE;
    }
    std::lock_guard<std::mutex> hold(mutex_);
    if (connection != connection_ || fd_ < 0) return QMI_CLIENT_TRANSPORT_ERR;  // lost meanwhile
    qmi_client_type handle = next_handle_++;
    if (next_handle_ == 0) next_handle_ = 1;
    clients_[handle] = {service, client_id, connection, 1, ind_cb, ind_cb_data};
    *client = handle;
    return QMI_CLIENT_NO_ERR;
}

int Library::Send(qmi_client_type client, unsigned int msg_id, const uint8_t* tlvs, size_t tlvs_len,
                  std::vector<uint8_t>* response_tlvs, unsigned int timeout_ms) {
    qmux::Message request;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        auto found = clients_.find(client);
        if (found == clients_.end()) return QMI_CLIENT_INVALID_HANDLE;
        Client& entry = found->second;
        // A client of an earlier connection no longer exists on the modem.
        if (entry.connection != connection_ || fd_ < 0) return QMI_CLIENT_TRANSPORT_ERR;
        request.service = entry.service;
        request.client_id = entry.client_id;
        if (entry.next_transaction == 0) entry.next_transaction = 1;
        request.transaction = entry.next_transaction++;
    }
    request.flags = qmux::kServiceRequest;
    request.message_id = static_cast<uint16_t>(msg_id);
    request.tlvs.assign(tlvs, tlvs + tlvs_len);
    return Exchange(std::move(request), response_tlvs, timeout_ms);
}

int Library::Release(qmi_client_type client) {
    Client entry;
    bool reachable;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        auto found = clients_.find(client);
        if (found == clients_.end()) return QMI_CLIENT_INVALID_HANDLE;
        entry = found->second;
        clients_.erase(found);
        reachable = entry.connection == connection_ && fd_ >= 0;
    }
    if (!reachable) return QMI_CLIENT_NO_ERR;  // the modem forgot it already
    std::vector<uint8_t> request;
    qmux::AppendTlv(&request, qmux::kCtlArgumentTlv,
                    std::vector<uint8_t>{entry.service, entry.client_id});
    std::vector<uint8_t> response;
    // The handle is gone whatever the modem answers (or if it does not):
    // failing here would leave the caller holding a handle that no longer
    // exists. A modem that cannot be told has lost the id with its transport.
    CtlExchange(qmux::kCtlReleaseClientId, std::move(request), &response, kCtlReleaseTimeoutMs);
    return QMI_CLIENT_NO_ERR;
}

// One library at a time.
std::mutex g_library_mutex;
std::shared_ptr<Library> g_library;
int g_library_handle = -1;
int g_next_handle = 1;

std::shared_ptr<Library> CurrentLibrary() {
    std::lock_guard<std::mutex> hold(g_library_mutex);
    return g_library;
}

// Puts the result TLV first, then the others in their order. A TLV area
// that does not parse is handed over as it came.
std::vector<uint8_t> ResultFirst(const std::vector<uint8_t>& tlvs) {
    std::vector<qmux::Tlv> parsed;
    if (!qmux::ParseTlvs(tlvs, &parsed)) return tlvs;
    std::vector<uint8_t> ordered;
    ordered.reserve(tlvs.size());
    for (const qmux::Tlv& tlv : parsed)
        if (tlv.type == qmux::kResultTlv) qmux::AppendTlv(&ordered, tlv.type, tlv.value);
    for (const qmux::Tlv& tlv : parsed)
        if (tlv.type != qmux::kResultTlv) qmux::AppendTlv(&ordered, tlv.type, tlv.value);
    return ordered;
}

}  // namespace

int qmi_init(qmi_sys_event_handler handler, void* user_data) {
    std::lock_guard<std::mutex> hold(g_library_mutex);
    if (g_library) return QMI_CLIENT_ALREADY_STARTED;
    std::string device = qmux::QmiDeviceFromEnvironment();
    qmux::Endpoint endpoint;
    if (!qmux::ParseEndpoint(device, &endpoint)) return QMI_CLIENT_INTERNAL_ERR;
    auto library = std::make_shared<Library>(endpoint, device, handler, user_data);
    int rc = library->Start();
    if (rc != QMI_CLIENT_NO_ERR) return rc;
    g_library = std::move(library);
    g_library_handle = g_next_handle++;
    return g_library_handle;
}

int qmi_client_get_service_list(qmi_idl_service_object_type service_obj, qmi_service_info* info,
                                unsigned int* num_entries, unsigned int* num_services) {
    std::shared_ptr<Library> library = CurrentLibrary();
    if (!library) return QMI_CLIENT_INTERNAL_ERR;
    return library->GetServiceList(service_obj, info, num_entries, num_services);
}

int qmi_client_init(const qmi_service_info* info, qmi_idl_service_object_type service_obj,
                    qmi_client_ind_cb ind_cb, void* ind_cb_data,
                    qmi_client_os_params* /*os_params*/, qmi_client_type* client) {
    std::shared_ptr<Library> library = CurrentLibrary();
    if (!library) return QMI_CLIENT_INTERNAL_ERR;
    return library->ClientInit(info, service_obj, ind_cb, ind_cb_data, client);
}

int qmi_client_send_raw_msg_sync(qmi_client_type client, unsigned int msg_id, const void* req,
                                 unsigned int req_len, void* resp, unsigned int resp_len,
                                 unsigned int* resp_len_received, unsigned int timeout_ms) {
    if (req == nullptr || req_len < kQmiRawRequestHeaderLen || (resp == nullptr && resp_len > 0) ||
        msg_id > 0xFFFF) {
        return QMI_CLIENT_INTERNAL_ERR;
    }
    std::shared_ptr<Library> library = CurrentLibrary();
    if (!library) return QMI_CLIENT_INTERNAL_ERR;
    const uint8_t* bytes = static_cast<const uint8_t*>(req);
    std::vector<uint8_t> response;
    int rc = library->Send(client, msg_id, bytes + kQmiRawRequestHeaderLen,
                           req_len - kQmiRawRequestHeaderLen, &response, timeout_ms);
    if (rc != QMI_CLIENT_NO_ERR) return rc;
    std::vector<uint8_t> ordered = ResultFirst(response);
    size_t copied = std::min<size_t>(ordered.size(), resp_len);
    if (copied > 0) std::memcpy(resp, ordered.data(), copied);
    if (resp_len_received != nullptr) *resp_len_received = static_cast<unsigned>(copied);
    return QMI_CLIENT_NO_ERR;
}

int qmi_client_release(qmi_client_type client) {
    std::shared_ptr<Library> library = CurrentLibrary();
    if (!library) return QMI_CLIENT_INTERNAL_ERR;
    return library->Release(client);
}

void qmi_client_set_wait_signals(const sigset_t* signals) {
    uint64_t bits = 0;
    for (int signal_number = 1; signals != nullptr && signal_number <= kMaskableSignals;
         ++signal_number) {
        if (sigismember(signals, signal_number) == 1) bits |= uint64_t{1} << (signal_number - 1);
    }
    g_wait_signals.store(bits);
}

int qmi_release(int handle) {
    std::shared_ptr<Library> library;
    {
        std::lock_guard<std::mutex> hold(g_library_mutex);
        if (!g_library || handle != g_library_handle) return QMI_CLIENT_INVALID_HANDLE;
        library = std::move(g_library);
        g_library_handle = -1;
    }
    library->Stop();
    return QMI_CLIENT_NO_ERR;
}
