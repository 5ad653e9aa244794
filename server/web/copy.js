// The token page's Copy button; without JavaScript the field can still be selected.
document.addEventListener("DOMContentLoaded", () => {
  for (const button of document.querySelectorAll("button[data-copy]")) {
    button.hidden = false;
    button.addEventListener("click", async () => {
      const field = document.getElementById(button.dataset.copy);
      field.select();
      try {
        await navigator.clipboard.writeText(field.value);
      } catch {
        document.execCommand("copy");
      }
      button.textContent = "Copied";
    });
  }
});
