// Counts what reached the page: every image, and several answers asked for at the same time.
"use strict";
window.addEventListener("load", async () => {
  const images = [...document.images];
  const shown = images.filter((image) => image.complete && image.naturalWidth > 0).length;
  const answers = await Promise.all(
    [...Array(12).keys()].map((n) => fetch("bays.json?" + n).then((answer) => answer.json())));
  const bays = answers.reduce((sum, answer) => sum + answer.bays.length, 0);
  document.getElementById("status").textContent =
    `${shown} of ${images.length} images, ${answers.length} answers, ${bays} bays`;
});
