// The page of a device: the form that orders a restore.

import {element, set_text} from "./elements.js";
import {address} from "./words.js";

const CONFIRMATION = "erase";

export class DevicePage {
  constructor(root, connection, station, ecid, find) {
    this.connection = connection;
    this.names = {station, device: ecid};
    this.find = find;
    // Sent twice, the order is the same one; what was refused stays refused.
    this.id = crypto.randomUUID();
    this.state = element("p", {class: "state"});
    this.latest = element("p");
    this.fault = element("p", {role: "alert"});
    this.bundle = element("select", {required: true});
    this.erase = element("input", {type: "checkbox"});
    this.erase_label = element("label", {}, this.erase, " Erase everything on the device");
    this.confirmation = element("input", {type: "text", autocomplete: "off",
      pattern: CONFIRMATION, spellcheck: "false"});
    this.confirmation_label = element("label", {hidden: true},
      `Type ${CONFIRMATION} to confirm that everything on the device is lost `, this.confirmation);
    this.submit = element("button", {}, "Restore");
    this.form = element("form", {}, element("p", {}, element("label", {}, "Bundle ", this.bundle)),
      element("p", {}, this.erase_label), element("p", {}, this.confirmation_label),
      element("p", {}, this.submit));
    this.form.addEventListener("input", () => this.update());
    this.form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.order();
    });
    root.replaceChildren(element("h2", {tabindex: -1}, `Device ${ecid}`), this.state, this.latest,
      this.fault, this.form);
    this.change();
  }

  close() {}

  /** Takes over what is known of the device now. */
  change() {
    const {head, tile} = this.find();
    this.state.dataset.look = tile?.look ?? "empty";
    const place = [this.names.station, tile?.slot, tile?.serial, tile?.product].filter(Boolean);
    set_text(this.state, [tile?.attached ? "attached" : "not attached", ...place].join(", "));
    this.show_job(tile);
    const can_order = head?.online && tile?.attached && !this.connection.read_only;
    this.form.hidden = !can_order;
    this.show_bundles(head?.bundles ?? []);
    this.erase_label.hidden = !head?.may_erase;
    this.update();
  }

  show_job(tile) {
    if (tile?.job && this.shown !== `${tile.job} ${tile.look}`) {
      this.shown = `${tile.job} ${tile.look}`;
      this.latest.replaceChildren("Latest job: ", element("a",
        {href: address("job", this.names.station, tile.job)}, `${tile.job} (${tile.look})`));
    }
  }

  show_bundles(names) {
    const known = [...this.bundle.options].map((each) => each.value);
    if (known.join("\n") !== names.join("\n")) {
      const chosen = this.has_chosen ? this.bundle.value : names[0];
      this.has_chosen ||= names.length > 0;
      this.bundle.replaceChildren(...names.map((name) => element("option", {value: name}, name)));
      this.bundle.value = chosen; // none, if that bundle is no longer there
    }
  }

  update() {
    const erases = this.erase.checked;
    this.confirmation_label.hidden = !erases;
    this.confirmation.required = erases;
    set_text(this.submit, erases ? "Erase and restore" : "Restore");
    this.submit.disabled = !this.bundle.value
      || (erases && this.confirmation.value !== CONFIRMATION);
  }

  async order() {
    this.submit.disabled = true;
    const {reason, is_known} = await this.connection.post("restore", {
      ...this.names, id: this.id, bundle: this.bundle.value, erase: this.erase.checked,
      confirmation: this.confirmation.value});
    if (reason) {
      this.id = is_known ? crypto.randomUUID() : this.id;
      set_text(this.fault, `Not ordered: ${reason}`);
      this.update();
      return;
    }
    location.hash = address("job", this.names.station, this.id);
  }
}
