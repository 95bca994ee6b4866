// A wall that nobody touches: as large as fits, and page by page if that could not be read.

// Pixels of a rem: less cannot be read from three metres.
const SMALLEST = 16;
const LARGEST = 40;
// How long a page is shown, in milliseconds.
const PAUSE = 10000;

export class WallFit {
  constructor(root) {
    this.root = root;
    this.count = null;
    document.documentElement.classList.add("for-wall");
    addEventListener("resize", () => {
      this.count = null;
      this.fit();
    });
    setInterval(() => this.turn(), PAUSE);
  }

  /** Makes everything as large as fits, if there are more or fewer tiles than before. */
  fit() {
    const count = this.root.querySelectorAll("li").length;
    if (this.count === count) {
      return;
    }
    this.count = count;
    set_size(SMALLEST);
    if (this.is_hopeless()) {
      return; // to measure all of it would take long
    }
    document.body.classList.add("measured");
    let [fitting, too_large] = [SMALLEST, fits(SMALLEST) ? LARGEST + 1 : SMALLEST + 1];
    while (too_large - fitting > 1) {
      const size = Math.floor((fitting + too_large) / 2);
      [fitting, too_large] = fits(size) ? [size, too_large] : [fitting, size];
    }
    set_size(fitting);
    document.body.classList.remove("measured");
  }

  /** Returns whether the tiles alone need more space than there is. */
  is_hopeless() {
    const {width, height} = this.root.querySelector("li")?.getBoundingClientRect()
      ?? {width: 0, height: 0};
    return this.count * width * height > innerWidth * innerHeight;
  }

  /** Shows what comes below, or the beginning again. */
  turn() {
    const is_cut = (each) => each.getBoundingClientRect().bottom > innerHeight + 1;
    const next = [...this.root.querySelectorAll("li")].find(is_cut);
    if (!next) {
      scrollTo(0, 0);
      return;
    }
    const station = next.closest("section");
    const top = parseFloat(getComputedStyle(document.documentElement).scrollPaddingTop);
    const begins_here = station.getBoundingClientRect().top > top + SMALLEST;
    (begins_here ? station : next).scrollIntoView();
  }
}

function set_size(size) {
  document.documentElement.style.fontSize = `${size}px`;
}

function fits(size) {
  set_size(size);
  const page = document.documentElement;
  return page.scrollHeight <= innerHeight && page.scrollWidth <= innerWidth;
}
