// The page of a job: its state, its time line and its documents.

import {ask, element, set_text} from "./elements.js";
import {address, duration, is_under_way, time_of} from "./words.js";

const PAUSE = 1000;

export class JobPage {
  constructor(root, connection, station, id) {
    this.connection = connection;
    this.names = {station, id};
    this.fault = element("p", {role: "alert"});
    this.refusal = element("p", {role: "alert"});
    this.state = element("p", {class: "state"});
    this.facts = element("dl");
    this.cancel = element("button", {type: "button", class: "risky", hidden: true}, "Cancel the restore");
    this.cancel.addEventListener("click", () => this.order_cancel());
    this.again = element("a", {class: "button", hidden: true}, "The device");
    this.steps = element("ol", {class: "steps"});
    this.documents = element("div", {class: "documents"});
    this.left_out = element("p");
    this.file = element("a", {hidden: true, download: true}, "All documents as a file");
    root.replaceChildren(
      element("h2", {tabindex: -1}, `Job ${id}`), this.state, this.fault, this.refusal,
      this.facts,
      element("p", {class: "actions"}, this.cancel, " ", this.again),
      element("h3", {}, "Time line"), this.steps,
      element("h3", {}, "Documents"), this.left_out, this.documents, element("p", {}, this.file));
    this.shown = 0; // documents, with those left out
    this.refresh();
  }

  /** Reads the job again, soon after it has changed. */
  change() {
    this.timer ??= setTimeout(() => this.refresh(), PAUSE);
  }

  close() {
    clearTimeout(this.timer);
    this.is_closed = true;
  }

  async refresh() {
    try {
      const value = await this.connection.fetch("job", this.names);
      set_text(this.fault, "");
      this.show(value);
    } catch (fault) {
      set_text(this.fault, `This cannot be shown now: ${fault.message}`);
      this.is_active = true;
    }
    this.timer = null;
    if (!this.is_closed && this.is_active) {
      this.change();
    }
  }

  show({job, now, steps, documents, left_out, has_file, note}) {
    this.is_active = is_under_way(job.look);
    const seconds = this.is_active && job.started ? now - job.started : job.seconds;
    this.state.dataset.look = job.look;
    set_text(this.state, job.look === "running" ? `running ${job.progress}%` : job.look);
    this.show_facts(job, seconds);
    this.cancel.hidden = !this.is_active || this.connection.read_only || job.cancel_asked_by !== "";
    this.again.hidden = this.connection.read_only;
    this.again.setAttribute("href", address("device", job.station, job.device));
    this.show_steps(steps, Math.max(seconds, 0.1), this.is_active);
    this.show_documents(documents, left_out, note);
    this.file.hidden = !has_file;
    this.file.setAttribute("href", `documents?${new URLSearchParams(this.names)}`);
  }

  show_facts(job, seconds) {
    const facts = {
      "Reason": job.reason, "Step": this.is_active ? job.step : "",
      "Station": job.station, "Slot": job.slot, "ECID": job.device,
      "Serial number": job.serial, "Bundle": job.bundle, "Erases": job.erase ? "yes" : "no",
      "Ordered": `${time_of(job.ordered)} by ${job.asked_by}`,
      "Started": job.started ? time_of(job.started) : "",
      "Ended": job.ended ? time_of(job.ended) : "",
      "Time": job.started ? duration(seconds) : "",
      "Cancel asked by": job.cancel_asked_by,
      "Exit status": job.exit_status === null ? "" : String(job.exit_status),
    };
    this.facts.replaceChildren(...Object.entries(facts).filter(([, value]) => value)
      .flatMap(([name, value]) => [element("dt", {}, name), element("dd", {}, value)]));
  }

  show_steps(steps, total, is_active) {
    if (!steps.length) {
      this.steps.replaceChildren(element("li", {class: "none"}, "no step is known"));
      return;
    }
    this.steps.replaceChildren(...steps.map((step, place) => {
      const end = steps[place + 1]?.start ?? total;
      const bar = element("span", {class: "length"});
      bar.style.marginInlineStart = `${100 * Math.min(1, step.start / total)}%`;
      bar.style.width = `${100 * Math.max(0, end - step.start) / total}%`;
      const is_current = is_active && place === steps.length - 1;
      return element("li", {"aria-current": is_current && "step"},
        element("span", {class: "name"}, step.name), " ",
        element("span", {class: "took"}, duration(end - step.start)), " ",
        element("span", {class: "line"}, bar));
    }));
  }

  show_documents(documents, left_out, note) {
    const total = left_out + documents.length;
    const added = documents.slice(documents.length - Math.min(total - this.shown, documents.length));
    this.documents.append(...added.map((each) => element("details", {},
      element("summary", {}, summary_of(each)),
      element("pre", {tabindex: 0}, JSON.stringify(each.Value, null, 1)))));
    while (this.documents.children.length > documents.length) {
      this.documents.firstChild.remove();
    }
    this.shown = total;
    set_text(this.left_out, note || (total === 0 ? "There are none yet."
      : left_out ? `The last ${documents.length} of ${total}.` : ""));
  }

  async order_cancel() {
    if (!await ask("End this restore? The device may need another one.")) {
      return;
    }
    const {reason} = await this.connection.post("cancel", this.names);
    set_text(this.refusal, reason && `Not cancelled: ${reason}`);
    this.change();
  }
}

function summary_of({Type, Value}) {
  const {Status, QN_OperationName, Progress, FailureReason, Reason} = Value ?? {};
  return [Type, QN_OperationName ?? Status ?? FailureReason ?? Reason,
    Progress === undefined ? null : `${Progress} %`].filter(Boolean).join("  ");
}
