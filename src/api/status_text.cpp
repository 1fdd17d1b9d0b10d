#include "api/tessal4_handle.h"

namespace {

struct Text {
  Status status;
  const char* alone;
  const char* among;  // where other errors share the word
};

// The gravest first: it may well have led to the others.
constexpr Text kTexts[] = {
    {ZELVAN_ERROR_RESOURCE, "the buffer is too small, or the system refused",
     "several errors, among them: the buffer is too small, or the system refused"},
    {ZELVAN_ERROR_NOMEM, "the working memory ran out", "several errors, among them: the working memory ran out"},
    {ZELVAN_ERROR_UNSUPPORTED, "a format or an operation that is not served",
     "several errors, among them: a format or an operation that is not served"},
    {ZELVAN_ERROR_PARAM, "a bad argument", "several errors, among them: a bad argument"},
    {ZELVAN_ERROR_STATE, "a call out of order", "several errors, among them: a call out of order"},
    {ZELVAN_ERROR_TIMEOUT, "a wait ran out of time", "several errors, among them: a wait ran out of time"},
};

}  // namespace

const char* zelvan_Tessaline4_getStatusText(uint32_t status) {
  if (status == ZELVAN_OK) return "success";
  if (status == ZELVAN_ERROR_GENERAL) return "a step failed, or the progress callback stopped the burst";
  if (!isFailure(status)) return "not a status of this library";
  for (const Text& text : kTexts) {
    if ((status & text.status) == text.status) return status == text.status ? text.alone : text.among;
  }
  return "not a status of this library";
}
