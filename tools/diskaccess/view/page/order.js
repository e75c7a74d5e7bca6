// Puts one camera where another stands: dragged by mouse or pen, or by a finger that rests on it first, so that a finger
// that moves at once scrolls as ever.

const kHold = 400; // milliseconds
const kSlack = 8; // pixels that a pointer may move without meaning it

export class Order {
  #figure = null; // the one that is pressed
  #target = null; // where it would go
  #pointer = null;
  #begin = { x: 0, y: 0 };
  #timer = 0;
  #dragging = false;
  #lifted = false; // since the pointer was pressed: the click that comes of it chooses no camera

  constructor(cameras) {
    cameras.addEventListener("pointerdown", (event) => this.#press(event));
    cameras.addEventListener("pointermove", (event) => this.#move(event));
    cameras.addEventListener("pointerup", (event) => this.#release(event));
    cameras.addEventListener("pointercancel", (event) => this.#release(event, true));
    cameras.addEventListener("contextmenu", (event) => this.#figure && event.preventDefault());
    for (const kind of ["touchmove", "touchend"]) { // else the browser scrolls, and clicks
      cameras.addEventListener(kind, (event) => this.#lifted && event.preventDefault(), { passive: false });
    }
    cameras.addEventListener("click", (event) => this.#lifted && event.stopPropagation(), { capture: true });
    addEventListener("keydown", (event) => event.key === "Escape" && this.#end());
  }

  #press(event) {
    if (!event.isPrimary || event.button !== 0) {
      return this.#end(); // a second finger, or another button: nothing is dragged
    }
    this.#end();
    this.#lifted = false;
    this.#figure = event.target.closest("figure");
    this.#pointer = event.pointerId;
    this.#begin = { x: event.clientX, y: event.clientY };
    if (event.pointerType === "touch") {
      this.#timer = setTimeout(() => this.#lift(), kHold);
    }
  }

  #lift() {
    if (this.#figure) {
      this.#dragging = this.#lifted = true;
      this.#figure.setPointerCapture(this.#pointer);
      this.#figure.dataset.dragged = "";
    }
  }

  #move(event) {
    if (!this.#figure || event.pointerId !== this.#pointer) {
      return;
    }
    const x = event.clientX - this.#begin.x;
    const y = event.clientY - this.#begin.y;
    if (!this.#dragging && Math.hypot(x, y) > kSlack) {
      if (event.pointerType === "touch") {
        return this.#end();
      }
      this.#lift();
    }
    if (this.#dragging) {
      this.#figure.style.transform = `translate(${x}px, ${y}px)`;
      this.#aim(event);
    }
  }

  #aim(event) {
    const target = document.elementsFromPoint(event.clientX, event.clientY)
      .map((element) => element.closest("figure")).find((figure) => figure && figure !== this.#figure);
    if (target !== this.#target) {
      delete this.#target?.dataset.target;
      this.#target = target;
      if (target) {
        target.dataset.target = "";
      }
    }
  }

  #release(event, cancelled = false) {
    const figure = this.#figure;
    const target = event.pointerId === this.#pointer && !cancelled ? this.#target : null;
    this.#end();
    setTimeout(() => (this.#lifted = false)); // after the click
    if (target) {
      putBefore(figure, target);
    }
  }

  #end() {
    clearTimeout(this.#timer);
    if (this.#figure) {
      delete this.#figure.dataset.dragged;
      this.#figure.style.transform = "";
    }
    delete this.#target?.dataset.target;
    this.#figure = this.#target = this.#pointer = null;
    this.#dragging = false;
  }
}

// Puts one camera where another stands.
function putBefore(figure, place) {
  const after = figure.compareDocumentPosition(place) & Node.DOCUMENT_POSITION_FOLLOWING;
  place[after ? "after" : "before"](figure);
}

// Moves the camera that has the focus, among those shown.
export function moveCamera(direction) {
  const shown = [...document.querySelectorAll("figure")].filter((figure) => !figure.hidden);
  const at = shown.indexOf(document.activeElement);
  const place = shown[at + direction];
  if (at >= 0 && place) {
    const figure = shown[at];
    putBefore(figure, place);
    figure.focus();
  }
}
