#include "agent/report_page.h"

#include <algorithm>
#include <cstdio>
#include <pugixml.hpp>
#include <sstream>

#include "agent/report_style.h"
#include "agent/text.h"
#include "services/json_spirit.h"

namespace agent {
namespace {

using Node = pugi::xml_node;

constexpr std::size_t most_parts = 12;     // of a job's bar
constexpr std::size_t minute_length = 16;  // of a date without its seconds
constexpr int row_height = 72;
constexpr int picture_width = 64;
constexpr int dot_x = 52;

// Text as valid UTF-8 without control characters; a byte that isn't UTF-8 becomes U+FFFD.
std::string clean(const std::string& text) {
  const json_spirit::Value value = escape_controls(text);
  using Handler = json_spirit::Value::error_handler_t;
  return json_spirit::Value::parse(value.dump(-1, ' ', false, Handler::replace)).get<std::string>();
}

Node add(Node parent, const char* name, const std::string& text = {}, const char* kind = nullptr) {
  Node node = parent.append_child(name);
  if (kind != nullptr) node.append_attribute("class") = kind;
  if (!text.empty()) node.text().set(clean(text).c_str());
  return node;
}

// Gives a name a text direction of its own, so that it can't turn the text around it.
void add_path(Node parent, const std::string& path) {
  add(add(parent, "td"), "bdi", escape_name(path), "path");
}

void set_width(Node node, unsigned long long part, unsigned long long whole) {
  char style[40];
  std::snprintf(style, sizeof style, "width:%.3f%%",
                whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole));
  node.append_attribute("style") = style;
}

std::string number_text(unsigned long long value) {
  std::string text = std::to_string(value);
  for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
  return text;
}

std::string change_text(unsigned long long now, unsigned long long before, bool size) {
  const unsigned long long change = now > before ? now - before : before - now;
  return (now < before ? "\xE2\x88\x92" : "+") + (size ? size_text(change) : number_text(change));
}

std::string time_text(const Job_Facts& job) {
  return job.time == 0 ? "no date" : date_text(job.time) + " UTC";
}

std::string title_text(const Job_Facts& job) {
  const std::string text = job.base == 0 ? "full" : "from job " + std::to_string(job.base);
  return job.complete ? text : text + ", not complete";
}

// The jobs of which this one needs the media, as "1\u20133, 5".
std::string needs_text(const Job_Facts& job) {
  std::string text;
  unsigned int first = 0, last = 0;
  const auto flush = [&] {
    if (first == 0) return;
    text += (text.empty() ? "" : ", ") + std::to_string(first);
    if (last != first) text += "\xE2\x80\x93" + std::to_string(last);
  };
  for (const auto& [seq, bytes] : job.held_by) {
    if (seq == job.seq) continue;
    if (first == 0 || seq != last + 1) flush(), first = seq;
    last = seq;
  }
  flush();
  return text.empty() ? "needs no other job" : "needs job " + text;
}

// What the tree of a job is made of, by the jobs that hold it: the largest parts and the rest.
void add_bar(Node parent, const Job_Facts& job, unsigned long long widest) {
  Node bar = add(parent, "div", {}, "bar");
  std::vector<std::pair<unsigned int, unsigned long long>> parts(job.held_by.begin(),
                                                                 job.held_by.end());
  std::sort(parts.begin(), parts.end(),
            [](const auto& a, const auto& b) { return a.second > b.second; });
  unsigned long long rest = 0;
  while (parts.size() > most_parts) rest += parts.back().second, parts.pop_back();
  std::sort(parts.begin(), parts.end());
  const auto add_part = [&](const std::string& title, const std::string& kind,
                            unsigned long long bytes) {
    if (bytes == 0) return;
    Node part = add(bar, "span", {}, kind.c_str());
    part.append_attribute("title") = clean(title + ": " + size_text(bytes)).c_str();
    set_width(part, bytes, widest);
  };
  if (rest != 0) add_part("other jobs", "part old0", rest);
  for (const auto& [seq, bytes] : parts) {
    const bool own = seq == job.seq;
    add_part("held by job " + std::to_string(seq),
             own ? "part own" : "part old" + std::to_string(seq % 4), bytes);
  }
}

// A line from each job to the one that it started from, beside the rows of the jobs.
void add_lines(Node parent, const Report_Data& data) {
  const int height = row_height * static_cast<int>(data.jobs.size());
  Node svg = add(parent, "svg", {}, "lines");
  svg.append_attribute("width") = picture_width;
  svg.append_attribute("height") = height;
  svg.append_attribute("role") = "img";
  svg.append_attribute("aria-label") = "Which job started from which";
  const auto y_of = [](std::size_t row) {
    return row_height * static_cast<int>(row) + row_height / 2;
  };
  for (std::size_t row = 0; row < data.jobs.size(); ++row) {
    for (std::size_t base = 0; base < row; ++base) {
      if (data.jobs[base].seq != data.jobs[row].base) continue;
      const int away = std::min(44, 12 * static_cast<int>(row - base));
      char path[120];
      std::snprintf(path, sizeof path, "M%d %dC%d %d %d %d %d %d", dot_x, y_of(base), dot_x - away,
                    y_of(base), dot_x - away, y_of(row), dot_x, y_of(row));
      add(svg, "path").append_attribute("d") = path;
    }
  }
  for (std::size_t row = 0; row < data.jobs.size(); ++row) {
    Node dot = add(svg, "circle", {}, data.jobs[row].base == 0 ? "full" : "incremental");
    dot.append_attribute("cx") = dot_x;
    dot.append_attribute("cy") = y_of(row);
    dot.append_attribute("r") = 7;
  }
}

void add_chain(Node body, const Report_Data& data) {
  Node section = add(body, "section");
  add(section, "h2", "The chain");
  add(section, "p",
      "A line leads from each job to the one that it started from. A bar is the tree of a job by "
      "its "
      "size: what the job itself saved, and what earlier jobs hold of it.",
      "hint");
  Node chain = add(section, "div", {}, "chain");
  add_lines(chain, data);
  Node rows = add(chain, "div", {}, "rows");
  unsigned long long widest = 0;
  for (const Job_Facts& job : data.jobs) widest = std::max(widest, job.bytes);
  for (const Job_Facts& job : data.jobs) {
    Node row = add(rows, "div", {}, "row");
    Node line = add(row, "div", {}, "line");
    add(line, "b", "Job " + std::to_string(job.seq));
    add(line, "span", time_text(job).substr(0, minute_length));
    add(line, "span", title_text(job), "quiet");
    add_bar(row, job, widest);
    add(row, "div",
        "saved " + size_text(job.saved_bytes) + " of " + size_text(job.bytes) + "; " +
            needs_text(job),
        "quiet line");
  }
}

// Heads of columns; one that begins with `#` is for numbers.
Node add_table(Node parent, const std::vector<const char*>& heads) {
  Node table = add(add(parent, "div", {}, "wide"), "table");
  Node row = add(add(table, "thead"), "tr");
  for (const char* head : heads) {
    *head == '#' ? add(row, "th", head + 1, "number") : add(row, "th", head);
  }
  return add(table, "tbody");
}

void add_growth(Node body, const Report_Data& data) {
  Node section = add(body, "section");
  add(section, "h2", "What grew");
  Node table = add_table(section, {"Job", "When", "#Files", "#", "#Bytes", "#", "#Saved", ""});
  unsigned long long most = 0;
  for (const Job_Facts& job : data.jobs) most = std::max(most, job.saved_bytes);
  const Job_Facts* before = nullptr;
  for (const Job_Facts& job : data.jobs) {
    Node row = add(table, "tr");
    add(row, "td", std::to_string(job.seq));
    add(row, "td", time_text(job), "nowrap");
    add(row, "td", number_text(job.files), "number");
    add(row, "td", before == nullptr ? "" : change_text(job.files, before->files, false),
        "number quiet");
    add(row, "td", size_text(job.bytes), "number");
    add(row, "td", before == nullptr ? "" : change_text(job.bytes, before->bytes, true),
        "number quiet");
    add(row, "td", size_text(job.saved_bytes), "number");
    set_width(add(add(row, "td", {}, "graph"), "div", {}, "part own"), job.saved_bytes, most);
    before = &job;
  }
}

void add_list(Node body, const std::string& title, const std::string& hint,
              const std::vector<Sized_Path>& list, bool count) {
  if (list.empty()) return;
  Node section = add(body, "section");
  add(section, "h2", title);
  if (!hint.empty()) add(section, "p", hint, "hint");
  Node table = add_table(section, {"#Bytes", "", count ? "#Files" : "", "Path"});
  for (const Sized_Path& item : list) {
    Node row = add(table, "tr");
    add(row, "td", size_text(item.bytes), "number");
    set_width(add(add(row, "td", {}, "graph"), "div", {}, "part own"), item.bytes,
              list.front().bytes);
    add(row, "td", count ? number_text(item.files) : "", "number");
    add_path(row, item.path);
  }
}

void add_corrupt(Node section, const Report_Job& job) {
  if (job.corrupt_paths.empty()) return;
  Node list = add(section, "ul");
  for (const std::string& path : job.corrupt_paths) {
    add(add(list, "li"), "bdi", escape_name(path), "path");
  }
  if (job.corrupt > job.corrupt_paths.size()) {
    add(list, "li", "and " + number_text(job.corrupt - job.corrupt_paths.size()) + " more");
  }
}

void add_faults(Node body, const Report_Data& data) {
  Node section = add(body, "section");
  add(section, "h2", "Skipped, corrupt, damaged");
  bool any = false;
  for (const Report_Job& job : data.jobs) {
    const std::string name = "Job " + std::to_string(job.seq) + ": ";
    std::vector<std::string> lines = job.faults;
    if (!job.complete) lines.insert(lines.begin(), "pieces of it are missing");
    if (job.corrupt != 0) {
      lines.insert(lines.begin(), count_text(job.corrupt, "file") +
                                      " went bad while being read and stayed out of the catalog");
    }
    for (const std::string& line : lines) add(section, "p", name + line, "fault");
    add_corrupt(section, job);
    any = any || !lines.empty();
  }
  if (!any) add(section, "p", "The catalogs are whole, and no file went bad while it was saved.");
  add(section, "p",
      "What a job skipped isn't noted on the storage: the job named it when it ran. This page was "
      "made "
      "from the catalogs; 'mtf-agent verify' reads the medias too.",
      "hint");
}

void add_head(Node html, const Report_Data& data) {
  Node head = add(html, "head");
  add(head, "meta").append_attribute("charset") = "utf-8";
  const std::pair<const char*, const char*> metas[] = {
      {"viewport", "width=device-width, initial-scale=1"},
      {"color-scheme", "light dark"},
  };
  for (const auto& [name, content] : metas) {
    Node meta = add(head, "meta");
    meta.append_attribute("name") = name;
    meta.append_attribute("content") = content;
  }
  // The page can't load or run anything, even if something in it tried.
  Node policy = add(head, "meta");
  policy.append_attribute("http-equiv") = "Content-Security-Policy";
  policy.append_attribute("content") = "default-src 'none'; style-src 'unsafe-inline'";
  add(head, "title", "Jobs of " + data.stem);
  head.append_child("style").text().set(report_style);
}

}  // namespace

std::string report_page(const Report_Data& data) {
  pugi::xml_document document;
  document.append_child(pugi::node_doctype).set_value("html");
  Node html = add(document, "html");
  html.append_attribute("lang") = "en";
  add_head(html, data);
  Node body = add(html, "body");
  add(body, "h1", "Jobs of " + data.stem);
  const Job_Facts& last = data.jobs.back();
  add(body, "p",
      count_text(data.jobs.size(), "job") + "; the newest of " + time_text(last) + " holds " +
          number_text(last.files) + " files with " + size_text(last.bytes) + ".");
  add_chain(body, data);
  add_growth(body, data);
  const std::string job = "job " + std::to_string(data.seq);
  if (data.before != 0) {
    add_list(body, "What grew from job " + std::to_string(data.before) + " to " + job,
             "Directories with all below them, by the bytes that they have more.", data.grown,
             true);
  }
  add_list(body, "Largest directories of " + job,
           "With all below them; one whose bytes all lie in one directory below it is left out.",
           data.directories, true);
  add_list(body, "Largest files of " + job, "", data.files, false);
  add_faults(body, data);
  std::ostringstream out;
  document.save(out, "",
                pugi::format_raw | pugi::format_no_declaration | pugi::format_no_empty_element_tags,
                pugi::encoding_utf8);
  return out.str() + '\n';
}

}  // namespace agent
