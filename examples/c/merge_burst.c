/* Merges raw NV21 frames into one, the shortest way a C program can take.
 *
 *   merge_burst WIDTH HEIGHT RESULT FRAME FRAME...
 *
 * NV21 is luma rows, then rows of interleaved V and U at half size: what the library calls "YVU420_SEMIPLANAR". */
#include <stdio.h>
#include <stdlib.h>

#include <zelvan_tessaline4.h>

#define MAX_FRAMES 10

static int fail(const char* what, const char* why) {
  fprintf(stderr, "merge_burst: %s: %s\n", what, why);
  return EXIT_FAILURE;
}

static int transfer(const char* path, const char* mode, unsigned char* pixels, size_t size) {
  FILE* file = fopen(path, mode);
  size_t moved = 0;
  if (file == NULL) return 0;
  moved = mode[0] == 'r' ? fread(pixels, 1, size, file) : fwrite(pixels, 1, size, file);
  return fclose(file) == 0 && moved == size;
}

int main(int argc, char** argv) {
  const char* format = "YVU420_SEMIPLANAR";
  zelvan_Tessaline4 handle = {NULL};
  zelvan_ImageData frame[MAX_FRAMES];
  zelvan_ImageData output;
  unsigned char* pixels;
  void* memory;
  uint32_t status;
  int32_t bytes;
  int width, height, count, i;
  size_t luma, size;

  if (argc < 6 || argc > 4 + MAX_FRAMES) {
    fprintf(stderr, "usage: merge_burst WIDTH HEIGHT RESULT FRAME FRAME... (2 to %d frames)\n", MAX_FRAMES);
    return EXIT_FAILURE;
  }
  width = atoi(argv[1]);
  height = atoi(argv[2]);
  count = argc - 4;
  if (width < 2 || height < 2 || width % 2 != 0 || height % 2 != 0) return fail("size", "even sides only");
  luma = (size_t)width * (size_t)height;
  size = luma + luma / 2;

  /* One buffer for all that the library needs, and the frames, whose pixels the library may change. */
  bytes = zelvan_Tessaline4_getBufferSize(width, height, count, format);
  if (bytes <= 0) return fail("frames", "too large");
  memory = malloc((size_t)bytes);
  pixels = malloc(size * (size_t)(count + 1));
  if (memory == NULL || pixels == NULL) return fail("frames", "out of memory");
  output.width = width;
  output.height = height;
  output.plane0 = pixels;
  output.plane1 = pixels + luma;
  output.plane2 = NULL;
  for (i = 0; i < count; ++i) {
    unsigned char* at = pixels + size * (size_t)(i + 1);
    if (!transfer(argv[4 + i], "rb", at, size)) return fail(argv[4 + i], "not a frame of this size");
    frame[i] = output;
    frame[i].plane0 = at;
    frame[i].plane1 = at + luma;
  }

  status = zelvan_Tessaline4_initialize(&handle, memory, bytes, width, height);
  if (status != ZELVAN_TESSALINE4_OK) return fail("initialize", zelvan_Tessaline4_getStatusText(status));
  status = zelvan_Tessaline4_setImageFormat(&handle, format);
  status |= zelvan_Tessaline4_setSharpnessEnhanceLevel(&handle, 0);
  status |= zelvan_Tessaline4_start(&handle, &output, count);
  for (i = 0; i < count; ++i) status |= zelvan_Tessaline4_addImage(&handle, &frame[i]);
  status |= zelvan_Tessaline4_getResult(&handle);
  if (status != ZELVAN_TESSALINE4_OK) return fail("merge", zelvan_Tessaline4_getStatusText(status));
  for (i = 0; i < count; ++i) {
    int32_t fate = -1;
    zelvan_Tessaline4_getMergeStatus(&handle, &fate, i);
    printf("%s: %s\n", argv[4 + i], fate == ZELVAN_TESSALINE4_MERGED ? "merged" : "left out");
  }
  status = zelvan_Tessaline4_finalize(&handle);
  if (status != ZELVAN_TESSALINE4_OK) return fail("finalize", zelvan_Tessaline4_getStatusText(status));

  if (!transfer(argv[3], "wb", pixels, size)) return fail(argv[3], "cannot be written");
  free(pixels);
  free(memory);
  return EXIT_SUCCESS;
}
