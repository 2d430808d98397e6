// Search in the text of the pages, on the reader's side. text_index.js holds, for each word, the places that have it with
// their weights; docs/text_index.py makes it and states the same rules for a word.
'use strict';

const most_places = 12;

// Escape sequences of a coloured line, however they were pasted, and written line ends are no words.
const escapes = /(?:\u001b|\^\[|\\(?:033|x1b|e))?\[[0-9;]*m|\\[rn]/gi;

// One form for pad, pads, padding and padded. Names with an underscore or a digit stay as they are.
function stem(word) {
  if (/[_0-9]/.test(word) || word.length < 4) return word;
  const cut = word.replace(/(?:ing|ed|es|s)$/, '');
  const kept = cut.length < 3 ? word : cut;
  return kept.replace(/([b-df-hj-np-tv-z])\1$/, '$1').replace(/e$/, '');
}

function words_of(text) {
  return (text.replace(escapes, ' ').toLowerCase().match(/[a-z_][a-z0-9_]*/g) || []).map(stem);
}

// The places of the query's words, the weightiest first: the sum over its different words, times how many of them are there.
function places_of(query, index) {
  const found = new Map();
  for (const word of new Set(words_of(query))) {
    for (const [place, weight] of Object.hasOwn(index.words, word) ? index.words[word] : []) {
      const [sum, words] = found.get(place) || [0, 0];
      found.set(place, [sum + weight, words + 1]);
    }
  }
  const weights = [...found].map(([place, [sum, words]]) => [place, sum * words]);
  return weights.sort((a, b) => b[1] - a[1] || a[0] - b[0]).slice(0, most_places).map(([place]) => index.places[place]);
}

if (typeof document !== 'undefined') {
  const query = document.getElementById('text_search_query');
  const list = document.getElementById('text_search_places');
  const show = () => {
    list.replaceChildren(...places_of(query.value, text_index).map(place => {
      const entry = document.createElement('p');
      const link = document.createElement('a');
      link.href = place.url;
      link.textContent = place.page === place.title ? place.page : place.page + ': ' + place.title;
      entry.append(link, document.createElement('br'), place.text);
      return entry;
    }));
  };
  query.addEventListener('input', show);
  show();
}
