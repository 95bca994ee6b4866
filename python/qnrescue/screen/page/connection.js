// The connection to the server: what it sends, what is posted to it, and whether it is there.

// The server sends something every two seconds.
const SILENCE = 7000;
const PAUSE = 1500;

export class Connection {
  /** `receive(kind, value)` is called for what comes, `lost(since)` when the server is lost;
      `since` is a time in milliseconds. */
  constructor(receive, lost) {
    this.receive = receive;
    this.lost = lost;
    this.heard = Date.now();
    this.token = "";
    this.read_only = true;
    this.clock = 0; // the server's minus ours, in seconds
    this.page = null;
    this.is_lost = false;
    this.open();
    setInterval(() => this.check(), 1000);
  }

  /** Returns the server's time, in seconds. */
  now() {
    return Date.now() / 1000 + this.clock;
  }

  open() {
    this.opened = Date.now();
    this.stream = new EventSource("events");
    this.stream.onerror = () => this.fail();
    for (const kind of ["state", "changes", "beat"]) {
      this.stream.addEventListener(kind, (event) => this.take(kind, JSON.parse(event.data)));
    }
  }

  take(kind, value) {
    this.heard = Date.now();
    if (value.now) {
      this.clock = value.now - this.heard / 1000;
    }
    if (kind === "state") {
      if (this.page !== null && this.page !== value.page) {
        location.reload(); // the server is a newer one
      }
      this.page = value.page;
      this.token = value.token;
      this.read_only = value.read_only;
      this.is_lost = false;
    }
    this.receive(kind, value);
  }

  check() {
    if (Date.now() - Math.max(this.heard, this.opened) > SILENCE) {
      this.fail();
    }
  }

  /** Says that the server is lost, and tries again soon. */
  fail() {
    this.stream.close();
    this.opened = Date.now() + PAUSE;
    this.is_lost = true;
    this.lost(this.heard);
    clearTimeout(this.retry);
    this.retry = setTimeout(() => this.open(), PAUSE);
  }

  /** Returns a value from the server. Throws an error with its words. */
  async fetch(path, names) {
    const answer = await fetch(`${path}?${new URLSearchParams(names)}`);
    if (!answer.ok) {
      throw new Error((await answer.text()).trim());
    }
    return answer.json();
  }

  /** Posts an order; returns the `reason` why it was refused, empty if it was accepted, and whether
      the outcome `is_known`. */
  async post(path, order) {
    let answer;
    try {
      answer = await fetch(path, {
        method: "POST",
        headers: {"Content-Type": "application/json", "X-QNRescue-Token": this.token},
        body: JSON.stringify(order),
      });
    } catch {
      return {reason: "the server is not there; nothing is known of the order", is_known: false};
    }
    if (answer.headers.get("Content-Type")?.startsWith("application/json")) {
      return answer.json();
    }
    return {reason: (await answer.text()).trim(), is_known: true};
  }
}
