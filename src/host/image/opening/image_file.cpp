// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/image_file.h"

#include <utility>

#include "host/image/opening/leftover_journal.h"

namespace vornalux {

std::unique_ptr<MountedVolume> OpenImage(const std::string& path, const OpenOptions& options,
                                         OpenReport& report) {
  report = {};
  const bool to_disk = options.writable && !options.dry_run;
  ImageSource source = LocateVolume(path, options, to_disk);
  report.place = PlaceOf(source, options.sysfs);
  if (to_disk && options.refuse_solid && report.place.solid) {
    throw VolumeRefused(source.path +
                        " is on a disk that does not turn (solid-state), where nothing gets faster "
                        "by this and writing wears the disk: only the file system gains, by fewer "
                        "pieces and more room in one. --force works on it all the same; --dry-run "
                        "and analyze need no --force.");
  }
  if (options.dry_run) source.scratch = std::make_shared<ScratchDevice>(source.file);
  SettleLeftover(source, path, options, report);

  VolumeStore store = MakeStore(source);
  if (options.writable) store.journal_home = MakeJournal(source);
  if (options.piece) store.limits.piece = *options.piece;
  store.allow_dirty = options.allow_dirty;
  store.only_looking = !to_disk;
  store.drop_restore_points = options.drop_restore_points;
  std::unique_ptr<ImageVolume> volume = OpenFileSystem(source, std::move(store));
  const std::vector<std::string>& objections = volume->Objections();
  report.objections.insert(report.objections.end(), objections.begin(), objections.end());
  if (options.discard) report.source = std::make_shared<const ImageSource>(std::move(source));
  return volume;
}

}  // namespace vornalux
