// Light or dark: as the system has it, until somebody chooses.

import {set_text} from "./elements.js";

const KEY = "qnrescue-theme";

/** Lets the button change between light and dark. */
export function prepare_theme(button) {
  const dark = matchMedia("(prefers-color-scheme: dark)");
  const is_dark = () => (localStorage.getItem(KEY) ?? (dark.matches ? "dark" : "light")) === "dark";
  const show = () => {
    document.documentElement.dataset.theme = is_dark() ? "dark" : "light";
    set_text(button, is_dark() ? "Light colours" : "Dark colours");
  };
  button.addEventListener("click", () => {
    localStorage.setItem(KEY, is_dark() ? "light" : "dark");
    show();
  });
  dark.addEventListener("change", show);
  show();
}
