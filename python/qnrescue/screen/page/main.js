// Connects the server, the wall and the pages of jobs and devices.

import {Connection} from "./connection.js";
import {DevicePage} from "./device.js";
import {element, set_text} from "./elements.js";
import {WallFit} from "./fit.js";
import {JobPage} from "./job.js";
import {prepare_theme} from "./theme.js";
import {Wall} from "./wall.js";
import {FILTERS, time_of} from "./words.js";

const by_id = (id) => document.getElementById(id);
// For a wall that nobody touches: no links, and as large as it fits.
const is_for_wall = new URLSearchParams(location.search).has("wall");
const wall_fit = is_for_wall ? new WallFit(by_id("wall")) : null;
// How many ends of jobs are kept for those who listen to the page.
const ENDS = 20;
let page = null;
let place = ""; // the hash of the page

const connection = new Connection(receive, show_lost);
const wall = new Wall(by_id("wall"), by_id("summary"), {
  is_link: !is_for_wall,
  now: () => connection.now(),
  changed: () => {
    page?.change();
    wall_fit?.fit();
  },
  ended: say,
});

function receive(kind, value) {
  if (kind === "beat") {
    by_id("notice").hidden = !value.notice;
    set_text(by_id("notice"), value.notice);
    return;
  }
  if (kind === "state") {
    by_id("lost").hidden = true;
    document.body.classList.remove("lost");
    wall.keep_only(value.stations);
  }
  wall.change(value);
}

function say(text) {
  const said = by_id("said");
  said.append(element("span", {}, text));
  if (said.children.length > ENDS) {
    said.firstChild.remove();
  }
}

function show_lost(since) {
  by_id("lost").hidden = false;
  document.body.classList.add("lost");
  set_text(by_id("lost"), `No contact with the server since ${time_of(since / 1000)}. What is shown is`
    + " old. Trying again …");
}

/** Shows the page of the address: the wall, a job or a device. */
function show_page() {
  page?.close();
  page = null;
  const left = place;
  place = location.hash;
  const [, kind, station, id] = location.hash.split("/").map(decode);
  const has_page = !is_for_wall && ["job", "device"].includes(kind) && id;
  by_id("wall").hidden = has_page;
  by_id("details").hidden = !has_page;
  if (!has_page) {
    wall.focus(left);
    return;
  }
  page = kind === "job" ? new JobPage(by_id("details"), connection, station, id)
    : new DevicePage(by_id("details"), connection, station, id, () => ({
      head: wall.stations.get(station)?.head,
      tile: wall.find(station, (tile) => tile.device === id)}));
  by_id("details").querySelector("h2").focus();
}

function decode(part) {
  try {
    return decodeURIComponent(part);
  } catch {
    return "";
  }
}

function prepare_tools() {
  const search = by_id("search");
  const filter = by_id("filter");
  filter.append(...Object.entries(FILTERS).map(([name, [text]]) =>
    element("option", {value: name}, text)));
  const apply = () => wall.filter(search.value, filter.value);
  search.addEventListener("input", apply);
  filter.addEventListener("change", apply);
  document.addEventListener("keydown", (event) => {
    if (event.key === "/" && !/^(input|select|textarea)$/.test(document.activeElement.localName)) {
      event.preventDefault();
      search.focus();
    } else if (event.key === "Escape" && document.activeElement === search) {
      search.value = "";
      apply();
    }
  });
}

prepare_theme(by_id("theme"));
prepare_tools();
by_id("skip").addEventListener("click", (event) => {
  event.preventDefault(); // the hash says which page is shown
  by_id("content").focus();
});
addEventListener("hashchange", show_page);
show_page();
