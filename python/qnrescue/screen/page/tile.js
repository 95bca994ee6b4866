// A tile: a slot, or a device that is in none.

import {element, set_text} from "./elements.js";
import {address_of, duration, is_under_way} from "./words.js";

export class Tile {
  constructor(station, is_link) {
    this.station = station;
    this.value = null;
    this.slot = element("span", {class: "slot"});
    this.time = element("span", {class: "time"});
    this.state = element("strong", {class: "state"});
    this.text = element("span", {class: "text"});
    this.bar = element("span", {class: "bar"}, element("span", {class: "done"}));
    this.device = element("span", {class: "device"});
    this.body = element(is_link ? "a" : "div", {class: "tile"}, this.slot, " ", this.time, " ",
      this.state, " ", this.text, this.bar, " ", this.device);
    this.root = element("li", {}, this.body);
  }

  /** Takes over a new value. */
  show(value) {
    this.value = value;
    const {look, progress} = value;
    if (this.body.dataset.look !== look) {
      this.body.dataset.look = look;
    }
    set_text(this.slot, value.slot || value.device);
    this.slot.classList.toggle("long", this.slot.textContent.length > 12);
    set_text(this.state, look === "running" ? `running ${progress ?? 0}%` : look);
    const has_gone = value.device && !value.attached && !is_under_way(look);
    set_text(this.text, [value.text, has_gone ? "gone" : ""].filter(Boolean).join(", "));
    set_text(this.device, [value.slot && value.device, value.serial].filter(Boolean).join("  "));
    this.bar.classList.toggle("shown", progress !== null);
    this.bar.firstChild.style.transform = `scaleX(${(progress ?? 0) / 100})`;
    this.link();
  }

  link() {
    const address = address_of(this.station, this.value);
    if (this.body.localName !== "a" || this.body.getAttribute("href") === address) {
      return;
    }
    if (address) {
      this.body.setAttribute("href", address);
    } else {
      this.body.removeAttribute("href");
    }
  }

  /** Shows how long the restore has run; `now` is the server's time. */
  tick(now) {
    const {started, seconds} = this.value;
    const shown = started !== null ? now - started : seconds;
    set_text(this.time, shown === null ? "" : duration(shown));
  }

  /** Shows the tile if it has the text and one of the states; returns whether it does. */
  filter(text, looks) {
    const {slot, device, serial, look} = this.value;
    const words = `${this.station} ${slot} ${device} ${serial}`.toUpperCase();
    const is_shown = words.includes(text) && (looks === null || looks.includes(look));
    if (this.root.hidden === is_shown) {
      this.root.hidden = !is_shown;
    }
    return is_shown;
  }
}
