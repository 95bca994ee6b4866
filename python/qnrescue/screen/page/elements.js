// Makes elements. Text never becomes HTML here, whoever wrote it.

/** Returns a new element with these attributes and children; a child that is no element is text.
    An attribute that is true has no value, one that is false or null is left out. */
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (value !== false && value !== null && value !== undefined) {
      made.setAttribute(key, value === true ? "" : value);
    }
  }
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

/** Sets the text of the element, if it is another one. */
export function set_text(target, text) {
  if (target.textContent !== text) {
    target.textContent = text;
  }
}

/** Asks a question in a dialog; returns whether the answer was yes. */
export function ask(text) {
  const dialog = document.getElementById("question");
  set_text(document.getElementById("question-text"), text);
  dialog.returnValue = "no";
  dialog.showModal();
  return new Promise((resolve) => {
    dialog.addEventListener("close", () => resolve(dialog.returnValue === "yes"), {once: true});
  });
}
