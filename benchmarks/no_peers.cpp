#include "benchmarks/peers.h"

void tks::benchmarks::addJsonPeers(const std::string&, const std::string&) {}
void tks::benchmarks::addMaskingPeers(const std::string&, const std::string&) {}
