// relays.h - a server, and the ways to it that the Remote GUI is compared with.
//
//     direct     client --TCP--> server
//     others     client --TCP--> near end --link--> far end --TCP--> server
//
// Each end is a process of its own. They live in a network of their own, where the GUI's port is
// free, and end with the program.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace relays {

struct Way {
    std::string who;
    uint16_t port; // of the near end
};

// Starts the server and every relay that this machine has. Call it while there is one thread.
std::vector<Way> start();

// What a client tells the server: how much follows, and how much to answer then. It does so until
// the client closes the connection.
struct Order {
    uint32_t upload;
    uint32_t download;
};

int connect_to(uint16_t port); // -1: nobody listens
bool write_all(int fd, const void *bytes, size_t size);
bool read_all(int fd, size_t size);  // what the server sends is checked to be what it should be
unsigned char byte_at(size_t place); // of every answer

} // namespace relays
