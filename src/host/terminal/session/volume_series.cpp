// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/volume_series.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <system_error>
#include <utility>

#include "host/image/volume/refused.h"
#include "host/terminal/result/results_json.h"
#include "text/quantity_text.h"

namespace vornalux {
namespace {

struct End {
  std::string image;
  std::optional<Outcome> outcome;  // missing where its turn did not come
};

const char* NameOf(ExitCode code) {
  switch (code) {
    case ExitCode::Done:
      return "done";
    case ExitCode::Failed:
      return "failed";
    case ExitCode::Usage:
      return "not there";
    case ExitCode::Refused:
      return "refused";
    case ExitCode::Stopped:
      return "stopped";
    case ExitCode::InPieces:
      return "in pieces";
  }
  return "";
}

std::string FragmentedText(const VolumeTally& tally) {
  return Grouped(tally.fragmented_before) +
         (tally.fragmented_after ? " -> " + Grouped(*tally.fragmented_after) : "") + " fragmented";
}

std::string Padded(std::string text, std::size_t columns, bool right = false) {
  const std::size_t missing = columns - std::min(columns, text.size());
  return right ? std::string(missing, ' ') + text : text.append(missing, ' ');
}

std::string Row(const std::string& what, const std::optional<VolumeTally>& tally,
                const std::string& image) {
  constexpr std::size_t kWhat = 13;
  constexpr std::size_t kFragmented = 26;
  constexpr std::size_t kMoved = 18;
  const bool ran = tally && tally->fragmented_after;
  return "  " + Padded(what, kWhat) +
         Padded(tally ? FragmentedText(*tally) : "", kFragmented, true) +
         Padded(ran ? ByteText(tally->bytes_moved) + " moved" : "", kMoved, true) +
         (image.empty() ? "" : "  " + image) + "\n";
}

std::string TotalText(const std::vector<End>& ends, Charset charset) {
  VolumeTally total;
  std::string rows;
  std::int64_t good = 0;
  for (const auto& [image, outcome] : ends) {
    const std::string name = PrintableText(image, charset);
    if (!outcome) {
      rows += Row("not begun", {}, name);
      continue;
    }
    rows += Row(NameOf(outcome->code), outcome->tally, name);
    good += outcome->code == ExitCode::Done ? 1 : 0;
    if (!outcome->tally) continue;
    const VolumeTally& tally = *outcome->tally;
    total.fragmented_before += tally.fragmented_before;
    if (tally.fragmented_after) {
      total.fragmented_after = total.fragmented_after.value_or(0) + *tally.fragmented_after;
    }
    total.bytes_moved += tally.bytes_moved;
  }
  return Grouped(std::ssize(ends)) + " volumes, " + Grouped(good) + " done\n\n" + rows +
         Row("all", total, "");
}

// Throws nothing: what ends one volume is told, and the next has its turn.
Outcome CarryOut(const Options& options, TerminalDesktop& desktop,
                 const std::function<Outcome(const Options&)>& carry_out) {
  Outcome outcome;
  try {
    return carry_out(options);
  } catch (const VolumeRefused& refused) {
    outcome.code = ExitCode::Refused;
    outcome.error = refused.what();
  } catch (const std::exception& error) {
    outcome.code = ExitCode::Failed;
    outcome.error = error.what();
  }
  desktop.Say(outcome.error);
  return outcome;
}

}  // namespace

ExitCode Worse(ExitCode a, ExitCode b) {
  constexpr std::array kFromWorst = {ExitCode::Failed,  ExitCode::Refused,  ExitCode::Usage,
                                     ExitCode::Stopped, ExitCode::InPieces, ExitCode::Done};
  return *std::ranges::find_if(kFromWorst, [&](ExitCode each) { return each == a || each == b; });
}

ExitCode RunSeries(const Options& options, TerminalDesktop& desktop, Charset charset,
                   Outputs& outputs, const std::function<Outcome(const Options&)>& carry_out) {
  std::vector<End> ends;
  std::vector<ReportContent> reports;
  ExitCode worst = ExitCode::Done;
  std::error_code error;
  const bool elsewhere = outputs.report.IsStandardOutput();
  const auto show = [&](const std::string& text) {
    const std::error_code now =
        elsewhere ? WriteAll(STDERR_FILENO, text) : outputs.standard.Write(text);
    if (!error) error = now;
  };
  bool stopped = false;
  for (std::size_t i = 0; i < options.volumes.size(); ++i) {
    Options one = options;
    one.volumes = {options.volumes[i]};
    one.place = std::to_string(i + 1) + " of " + std::to_string(options.volumes.size());
    End& end = ends.emplace_back(End{one.volumes.front().image, {}});
    stopped = stopped || desktop.StopPending();
    if (!stopped) {
      outputs.log.Write(one.place + ": " + end.image);
      Outcome& outcome = end.outcome.emplace(CarryOut(one, desktop, carry_out));
      stopped = outcome.code == ExitCode::Stopped;
      if (outcome.report) reports.push_back(*std::exchange(outcome.report, {}));
    }
    const ExitCode code = end.outcome ? end.outcome->code : ExitCode::Stopped;
    worst = Worse(worst, code);
    const std::string result = end.outcome ? std::exchange(end.outcome->output, {}) : "";
    if (options.json) {
      show((i == 0 ? "[\n" : ",\n") +
           ToJsonElement(end.image, static_cast<int>(code),
                         end.outcome ? end.outcome->error : "not begun: stopped before", result));
    } else if (!result.empty()) {
      show(PrintableText(end.image, charset) + ":\n" + result + "\n");
    }
  }
  const std::string total = TotalText(ends, charset);
  outputs.log.Write(total);
  show(options.json ? "\n]\n" : total);
  if (!reports.empty() && outputs.report.IsOpen()) {
    if (const std::error_code failed = outputs.report.Replace(ToHtml(reports))) {
      desktop.Say(outputs.report.Name() + " could not be written: " + failed.message());
      worst = ExitCode::Failed;
    }
  }
  if (!error) return worst;
  desktop.Say("The result could not be written to standard " +
              std::string(elsewhere ? "error: " : "output: ") + error.message());
  return ExitCode::Failed;
}

}  // namespace vornalux
