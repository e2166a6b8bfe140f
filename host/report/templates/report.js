(function () {
  "use strict";
  var field = document.getElementById("filter"), count = document.getElementById("count");
  var items = Array.prototype.slice.call(document.querySelectorAll(".item"));
  var texts = null, timer = 0;
  function all(open) {
    document.querySelectorAll("main details").forEach(function (each) { if (!each.hidden) each.open = open; });
  }
  function filter() {
    var wanted = field.value.trim().toLowerCase(), shown = 0;
    if (!texts) texts = items.map(function (item) { return item.textContent.toLowerCase(); });
    items.forEach(function (item, at) {
      item.hidden = wanted !== "" && texts[at].indexOf(wanted) < 0;
      if (!item.hidden) shown += 1;
    });
    count.textContent = wanted === "" ? "" : shown + " of " + items.length;
  }
  field.addEventListener("input", function () { clearTimeout(timer); timer = setTimeout(filter, 120); });
  document.getElementById("open").addEventListener("click", function () { all(true); });
  document.getElementById("close").addEventListener("click", function () { all(false); });
  window.addEventListener("beforeprint", function () { all(true); });
  document.getElementById("tools").hidden = false;
}());
