// What states, times and devices are called.

/** The filters: a name for people, and the states that they show. */
export const FILTERS = {
  all: ["everything", null],
  active: ["under way", ["queued", "running"]],
  trouble: ["needs a look", ["failed", "timed out", "hung", "interrupted", "refused", "cancelled"]],
  succeeded: ["succeeded", ["succeeded"]],
  attached: ["not restored yet", ["attached"]],
  empty: ["empty", ["empty"]],
};

/** Returns whether a job in this state goes on. */
export function is_under_way(look) {
  return FILTERS.active[1].includes(look);
}

/** Returns seconds as minutes and seconds, and hours if there are any. */
export function duration(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  const rest = String(whole % 60).padStart(2, "0");
  const minutes = Math.floor(whole / 60);
  if (minutes < 60) {
    return `${minutes}:${rest}`;
  }
  return `${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, "0")}:${rest}`;
}

/** Returns the time of day, with the date if that is not today's. */
export function time_of(seconds) {
  const date = new Date(seconds * 1000);
  const time = date.toLocaleTimeString([], {hour: "2-digit", minute: "2-digit",
    second: "2-digit", hourCycle: "h23"});
  const is_today = date.toDateString() === new Date().toDateString();
  return is_today ? time : `${date.toLocaleDateString()} ${time}`;
}

/** Returns the hash of the page for a tile. */
export function address_of(station, tile) {
  if (tile.job) {
    return address("job", station, tile.job);
  }
  return tile.device ? address("device", station, tile.device) : null;
}

/** Returns the hash of a page. */
export function address(kind, station, id) {
  return `#/${kind}/${encodeURIComponent(station)}/${encodeURIComponent(id)}`;
}
