// The wall: all stations with their tiles.

import {element, set_text} from "./elements.js";
import {Tile} from "./tile.js";
import {FILTERS, is_under_way, time_of} from "./words.js";

// How many tiles are drawn in a frame, so that layout and paint fit into it too; the rest waits for
// the next one. After a frame that took longer than this, in milliseconds, there are fewer.
const [FEWEST_TILES, MOST_TILES] = [4, 20];
const LONG_FRAME = 30;

class Station {
  constructor(name) {
    this.name = name;
    this.tiles = new Map();
    this.head = null;
    const id = `station-${name}`;
    this.status = element("p", {class: "status"});
    this.list = element("ul", {class: "tiles"});
    this.root = element("section", {"aria-labelledby": id},
      element("h2", {id}, name), this.status, this.list);
  }

  show_head(head) {
    this.head = head;
    const is_offline = !head.online;
    this.root.classList.toggle("offline", is_offline);
    const last = head.heard ? `; last word: ${time_of(head.heard)}` : "";
    set_text(this.status, [is_offline ? `offline${last}` : "", head.note]
      .filter(Boolean).join("; "));
  }

  /** Puts the tiles in this order. */
  arrange(keys, make) {
    const wanted = new Set(keys);
    for (const [key, tile] of this.tiles) {
      if (!wanted.has(key)) {
        tile.root.remove();
        this.tiles.delete(key);
      }
    }
    keys.forEach((key, place) => {
      const tile = this.tiles.get(key) ?? make();
      this.tiles.set(key, tile);
      if (this.list.children[place] !== tile.root) {
        this.list.insertBefore(tile.root, this.list.children[place] ?? null);
      }
    });
  }
}

export class Wall {
  /** `changed()` is called after drawing, `ended(text)` for each job that ends. */
  constructor(root, summary, {is_link, now, changed, ended}) {
    this.root = root;
    this.summary = summary;
    this.is_link = is_link;
    this.now = now;
    this.changed = changed;
    this.ended = ended;
    this.stations = new Map();
    this.has_changed = true;
    this.waiting = new Map(); // by tile: the value to be shown, null for the time alone
    this.at_once = MOST_TILES;
    this.drawn_at = null;
    this.text = "";
    this.filter_name = "all";
    setInterval(() => this.tick(), 1000);
    root.addEventListener("keydown", (event) => this.move(event));
  }

  /** Forgets everything that is not in these stations. */
  keep_only(stations) {
    const names = new Set(stations.map((station) => station.name));
    this.remove([...this.stations.keys()].filter((name) => !names.has(name)));
  }

  remove(names) {
    for (const name of names) {
      this.stations.get(name)?.root.remove();
      this.stations.delete(name);
    }
  }

  /** Takes over what has changed. */
  change({stations = [], gone = []}) {
    this.remove(gone);
    for (const {name, head, keys, tiles = []} of stations) {
      const station = this.station(name);
      if (head) {
        station.show_head(head);
      }
      const values = new Map(tiles.map((tile) => [tile.key, tile]));
      if (keys) {
        station.arrange(keys, () => new Tile(name, this.is_link));
      }
      for (const [key, value] of values) {
        this.waiting.set(station.tiles.get(key), value);
      }
    }
    this.has_changed = true;
    this.draw_soon();
  }

  station(name) {
    if (!this.stations.has(name)) {
      const station = new Station(name);
      const next = [...this.stations.keys()].sort().find((other) => other > name);
      this.root.insertBefore(station.root, this.stations.get(next)?.root ?? null);
      this.stations.set(name, station);
    }
    return this.stations.get(name);
  }

  tick() {
    for (const tile of this.tiles()) {
      if (tile.value?.started && !this.waiting.has(tile)) {
        this.waiting.set(tile, null);
      }
    }
    this.draw_soon();
  }

  * tiles() {
    for (const station of this.stations.values()) {
      yield* station.tiles.values();
    }
  }

  draw_soon() {
    this.frame ??= requestAnimationFrame((now) => this.draw(now));
  }

  draw(now) {
    this.frame = null;
    if (this.drawn_at) {
      this.at_once = now - this.drawn_at > LONG_FRAME ? Math.max(FEWEST_TILES, this.at_once / 2)
        : Math.min(MOST_TILES, this.at_once + 1);
    }
    for (const [tile, value] of [...this.waiting].slice(0, this.at_once)) {
      this.waiting.delete(tile);
      if (value !== null) {
        this.announce(tile, value);
        tile.show(value);
        this.filter_tile(tile);
        this.has_changed = true;
      }
      tile.tick(this.now());
    }
    this.drawn_at = this.waiting.size ? now : null; // the next frame says how long this one took
    if (this.waiting.size) {
      this.draw_soon();
    } else if (this.has_changed) {
      this.has_changed = false;
      this.sum_up();
      this.changed();
    }
  }

  announce(tile, value) {
    const before = tile.value;
    if (before && before.job === value.job && is_under_way(before.look)
        && !is_under_way(value.look)) {
      this.ended(`${tile.station} ${value.slot || value.device}: ${value.look} ${value.text}`);
    }
  }

  /** Shows the tiles with this text and in the states of this filter. */
  filter(text, filter_name) {
    this.text = text.trim().toUpperCase();
    this.filter_name = filter_name;
    for (const tile of this.tiles()) {
      if (tile.value) {
        this.filter_tile(tile);
      }
    }
    this.sum_up();
  }

  filter_tile(tile) {
    tile.filter(this.text, FILTERS[this.filter_name][1]);
  }

  sum_up() {
    const counts = new Map();
    let shown = 0;
    let all = 0;
    for (const station of this.stations.values()) {
      let here = 0;
      for (const {value, root} of station.tiles.values()) {
        all += 1;
        here += !root.hidden;
        counts.set(value?.look, (counts.get(value?.look) ?? 0) + 1);
      }
      shown += here;
      station.root.hidden = here === 0 && station.tiles.size > 0;
    }
    const offline = [...this.stations.values()].filter(({head}) => head && !head.online).length;
    const parts = [...counts].map(([look, count]) => `${count} ${look}`);
    if (offline) {
      parts.push(`${offline} ${offline === 1 ? "station" : "stations"} offline`);
    }
    if (shown < all) {
      parts.unshift(`${shown} of ${all} shown`);
    }
    set_text(this.summary, parts.join(", ") || "nothing is attached");
  }

  /** Gives the focus to the tile that leads to this address, if there is one. */
  focus(address) {
    [...this.root.querySelectorAll("a[href]")]
      .find((each) => each.getAttribute("href") === address)?.focus();
  }

  /** Moves between the tiles with the arrow keys. */
  move(event) {
    const step = {ArrowRight: 1, ArrowLeft: -1, ArrowDown: 1, ArrowUp: -1}[event.key];
    const links = [...this.root.querySelectorAll("li:not([hidden]) > a[href]")];
    const at = links.indexOf(document.activeElement);
    if (!step || at < 0) {
      return;
    }
    event.preventDefault();
    const is_vertical = event.key === "ArrowDown" || event.key === "ArrowUp";
    (is_vertical ? below(links, at, step) : links[at + step])?.focus();
  }

  /** Returns the latest value of the tile of this job or device; undefined if there is none. */
  find(station, test) {
    const tiles = this.stations.get(station)?.tiles.values() ?? [];
    return [...tiles].map((tile) => tile.value).find((value) => value && test(value));
  }
}

/** Returns the link nearest to this one in the next row in the direction of the step. */
function below(links, at, step) {
  const here = links[at].getBoundingClientRect();
  let found;
  for (let each = at + step; links[each]; each += step) {
    const there = links[each].getBoundingClientRect();
    const is_other_row = step * (there.top - here.top) > 1;
    if (found && Math.abs(there.top - found.top) > 1) {
      break;
    }
    const distance = Math.abs(there.left - here.left);
    if (is_other_row && (!found || distance < found.distance)) {
      found = {link: links[each], top: there.top, distance};
    }
  }
  return found?.link;
}
