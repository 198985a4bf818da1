#ifndef NORVA_TESTS_CUTPROXY_H
#define NORVA_TESTS_CUTPROXY_H

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace testing_support {

// A TCP relay on 127.0.0.1 between the library and a server, for the faults
// the connector must see from a real server: it can hold every byte while the
// sockets stay open (a host that stops answering), or cut one connection at a
// chosen point of a statement. Its threads live in this process; the
// destructor closes every socket and joins them.
class CutProxy {
public:
    enum class Cut {
        BeforeStatement,  // the statement never reaches the server
        AfterAnswer       // the server ran it and answered; the answer is dropped
    };

    // `target`: the server, "tcp://127.0.0.1:PORT".
    explicit CutProxy(const std::string& target);
    ~CutProxy();
    CutProxy(const CutProxy&) = delete;
    CutProxy& operator=(const CutProxy&) = delete;

    std::string Host() const;  // "tcp://127.0.0.1:PORT" of the relay
    int Accepted() const { return m_accepted; }

    // The next statement whose text contains `marker` is cut there, once:
    // a statement sent as text, or the execution of a prepared one.
    void CutNext(const std::string& marker, Cut where);
    bool HasCut() const { return m_cutDone; }
    // While held, no byte moves either way and new connections wait unanswered.
    void Hold(bool on) { m_held = on; }

private:
    void AcceptLoop();
    void Relay(int client);
    bool Armed(const char* data, size_t size, Cut& where);

    int m_listen = -1;
    int m_port = 0;
    int m_targetPort = 0;
    int m_stop[2] = {-1, -1};  // a byte written here wakes every loop to end
    std::atomic<int> m_accepted{0};
    std::atomic<bool> m_held{false};
    std::atomic<bool> m_cutDone{false};
    std::mutex m_mutex;  // guards the armed cut and the relay threads
    std::string m_marker;
    Cut m_where = Cut::BeforeStatement;
    bool m_armed = false;
    std::vector<std::thread> m_relays;
    std::thread m_acceptor;
};

}  // namespace testing_support

#endif
