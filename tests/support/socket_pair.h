#ifndef QUELVANE_TEST_SOCKET_PAIR_H
#define QUELVANE_TEST_SOCKET_PAIR_H

// A connected pair of local stream sockets: the code under test gets `mine`,
// the test plays the daemon on `peer`.

#include <gtest/gtest.h>

#include <string>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

namespace qvtest {

struct SocketPair {
    // Who closes `mine` at the end: the pair itself, or the code under test
    // that was handed the descriptor and closes it on its own.
    enum Ownership { BothEnds, PeerOnly };

    int mine = -1;
    int peer = -1;
    Ownership ownership;

    explicit SocketPair(Ownership own = BothEnds) : ownership(own)
    {
        int sv[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) == 0) {
            mine = sv[0];
            peer = sv[1];
        }
    }
    ~SocketPair()
    {
        if (ownership == BothEnds && mine >= 0)
            close(mine);
        if (peer >= 0)
            close(peer);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    // Sends all of `bytes` from the daemon's end (fails the test otherwise).
    void send(const std::string& bytes) const
    {
        ASSERT_EQ(::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    // The daemon hangs up.
    void closePeer()
    {
        close(peer);
        peer = -1;
    }
};

} // namespace qvtest

#endif
