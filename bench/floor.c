/* The floor of the job: create the same number of files with the same sizes as a run of the
 * tool, and nothing else. Usage: floor <sizes file> <output dir>; the sizes file has one size
 * in bytes per line. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s <sizes file> <output dir>\n", argv[0]);
    return 2;
  }
  FILE* sizes = fopen(argv[1], "r");
  if (!sizes) return 1;
  static char buffer[1 << 20];
  memset(buffer, 'x', sizeof buffer);
  char path[4096];
  unsigned long size;
  unsigned n = 0;
  while (fscanf(sizes, "%lu", &size) == 1) {
    snprintf(path, sizeof path, "%s/f%u", argv[2], n++);
    int fd = open(path, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (fd < 0) return 1;
    while (size > 0) {
      size_t chunk = size < sizeof buffer ? size : sizeof buffer;
      if (write(fd, buffer, chunk) != (ssize_t)chunk) return 1;
      size -= chunk;
    }
    close(fd);
  }
  fclose(sizes);
  return 0;
}
