/* The floor of segmenting a movie's subtitle track: read the movie header and every sample of
 * the first 'sbtl' track with one exact read each, then create the same files with the same
 * sizes as a run of the tool, and nothing else.
 * Usage: movie_floor <movie> <sizes file> <output dir>; the sizes file has one "size path"
 * line per file (path relative to the output dir, at most one directory level). */
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static uint64_t be(const unsigned char* p, int n) {
  uint64_t v = 0;
  for (int i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

/* The first child box of type `type` within [p, end): its payload and payload size. */
static const unsigned char* child(const unsigned char* p, const unsigned char* end,
                                  const char* type, uint64_t* size) {
  while (end - p >= 8) {
    uint64_t n = be(p, 4), header = 8;
    if (n == 1 && end - p >= 16) n = be(p + 8, 8), header = 16;
    if (n < header || n > (uint64_t)(end - p)) return NULL;
    if (memcmp(p + 4, type, 4) == 0) {
      *size = n - header;
      return p + header;
    }
    p += n;
  }
  return NULL;
}

/* The box at `types` ("mdia/minf/stbl") under [p, p + n). */
static const unsigned char* path(const unsigned char* p, uint64_t n, const char* types,
                                 uint64_t* size) {
  for (;; types += 5) {
    if (!(p = child(p, p + n, types, &n)) || types[4] == 0) break;
  }
  *size = n;
  return p;
}

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: %s <movie> <sizes file> <output dir>\n", argv[0]);
    return 2;
  }
  int fd = open(argv[1], O_RDONLY);
  if (fd < 0) return 1;
  /* The header: walk the top-level boxes to 'moov' and read it whole. */
  unsigned char h[16];
  uint64_t at = 0, moovSize = 0;
  while (pread(fd, h, 16, (off_t)at) >= 8) {
    uint64_t n = be(h, 4), header = 8;
    if (n == 1) n = be(h + 8, 8), header = 16;
    if (n < header) return 1;
    if (memcmp(h + 4, "moov", 4) == 0) {
      moovSize = n - header;
      at += header;
      break;
    }
    at += n;
  }
  unsigned char* moov = malloc(moovSize);
  if (!moovSize || !moov || pread(fd, moov, moovSize, (off_t)at) != (ssize_t)moovSize) return 1;
  /* The first subtitle track's sample table. */
  const unsigned char* stbl = NULL;
  uint64_t stblSize = 0, n;
  for (const unsigned char* p = moov; !stbl;) {
    const unsigned char* trak = child(p, moov + moovSize, "trak", &n);
    if (!trak) return 1;
    uint64_t hn;
    const unsigned char* hdlr = path(trak, n, "mdia/hdlr", &hn);
    if (hdlr && hn >= 12 && memcmp(hdlr + 8, "sbtl", 4) == 0)
      stbl = path(trak, n, "mdia/minf/stbl", &stblSize);
    p = trak + n;
  }
  uint64_t szN, scN, coN;
  const unsigned char* stsz = child(stbl, stbl + stblSize, "stsz", &szN);
  const unsigned char* stsc = child(stbl, stbl + stblSize, "stsc", &scN);
  int wide = 0;
  const unsigned char* stco = child(stbl, stbl + stblSize, "stco", &coN);
  if (!stco) stco = child(stbl, stbl + stblSize, "co64", &coN), wide = 1;
  if (!stsz || !stsc || !stco || szN < 12 || scN < 8 || coN < 8) return 1;
  const uint64_t fixed = be(stsz + 4, 4), samples = be(stsz + 8, 4);
  const uint64_t runs = be(stsc + 4, 4), chunks = be(stco + 4, 4);
  if ((!fixed && szN < 12 + 4 * samples) || scN < 8 + 12 * runs ||
      coN < 8 + (wide ? 8 : 4) * chunks)
    return 1;
  /* Walk chunk by chunk, reading each sample with one exact read. */
  static unsigned char sample[1 << 16];
  uint64_t s = 0, bytes = 0;
  for (uint64_t r = 0; r < runs && s < samples; ++r) {
    const unsigned char* e = stsc + 8 + 12 * r;
    uint64_t first = be(e, 4), last = r + 1 < runs ? be(e + 12, 4) : chunks + 1;
    for (uint64_t c = first; c < last && c <= chunks && s < samples; ++c) {
      uint64_t offset = wide ? be(stco + 8 + 8 * (c - 1), 8) : be(stco + 8 + 4 * (c - 1), 4);
      for (uint64_t k = 0; k < be(e + 4, 4) && s < samples; ++k, ++s) {
        uint64_t size = fixed ? fixed : be(stsz + 12 + 4 * s, 4);
        if (size > sizeof sample || pread(fd, sample, size, (off_t)offset) != (ssize_t)size)
          return 1;
        offset += size;
        bytes += size;
      }
    }
  }
  close(fd);
  free(moov);
  if (s != samples) return 1;
  /* The files. */
  FILE* sizes = fopen(argv[2], "r");
  if (!sizes) return 1;
  static char buffer[1 << 16];
  memset(buffer, 'x', sizeof buffer);
  char name[4096], file[8192];
  unsigned long size;
  while (fscanf(sizes, "%lu %4095s", &size, name) == 2) {
    snprintf(file, sizeof file, "%s/%s", argv[3], name);
    char* slash = strchr(file + strlen(argv[3]) + 1, '/');
    if (slash) {
      *slash = 0;
      mkdir(file, 0777);
      *slash = '/';
    }
    int out = open(file, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (out < 0) return 1;
    while (size > 0) {
      size_t chunk = size < sizeof buffer ? size : sizeof buffer;
      if (write(out, buffer, chunk) != (ssize_t)chunk) return 1;
      size -= chunk;
    }
    close(out);
  }
  fclose(sizes);
  printf("%llu samples, %llu bytes\n", (unsigned long long)samples, (unsigned long long)bytes);
  return 0;
}
