// SPDX-License-Identifier: MIT
#include <tools/export/event_rows.h>

#include <zephly/protocol/streams.h>

namespace Zephly::exporting {

void writeEvents(CsvFile& file, const replay::Timeline& timeline) {
  for (const replay::Annotation& annotation : timeline.annotations) {
    file.begin(annotation.time);
    file.text(replay::annotationName(annotation.kind));
    file.text(annotation.stream ? streamInfo(*annotation.stream).name : "");
    if (annotation.duration) {
      file.duration(*annotation.duration);
    } else {
      file.text("");
    }
    file.endRow();
  }
}

}  // namespace Zephly::exporting
