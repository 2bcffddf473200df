// Writes a file of pseudo-random bytes, the same ones every time: MakeBulk FILE BYTES

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <vector>

int main(int argc, char** argv) {
  const unsigned long bytes = argc == 3 ? std::strtoul(argv[2], nullptr, 0) : 0;
  if (bytes == 0) {
    std::fprintf(stderr, "usage: MakeBulk FILE BYTES\n");
    return 2;
  }
  std::mt19937 random(20260722);  // its sequence is fixed by the standard
  std::vector<char> data(bytes);
  for (char& byte : data) byte = static_cast<char>(random() & 0xFF);
  std::ofstream file(argv[1], std::ios::binary);
  file.write(data.data(), static_cast<std::streamsize>(data.size())).flush();
  if (file) return 0;
  std::fprintf(stderr, "MakeBulk: cannot write %s\n", argv[1]);
  return 1;
}
