// SPDX-License-Identifier: MIT
/** Dark, light, or the system's theme ("auto"); stored in the browser. */

export const THEMES = ['auto', 'dark', 'light'] as const;
export type Theme = (typeof THEMES)[number];

const KEY = 'zephly-theme';

export class ThemeChoice {
  private readonly systemDark = matchMedia('(prefers-color-scheme: dark)');

  /** `changed` is called when the colours change. */
  constructor(private readonly changed: () => void) {
    this.apply(this.chosen);
    this.systemDark.addEventListener('change', () => this.apply(this.chosen));
  }

  get chosen(): Theme {
    return THEMES.find((theme) => theme === remembered()) ?? 'auto';
  }

  next(): Theme {
    const theme = THEMES[(THEMES.indexOf(this.chosen) + 1) % THEMES.length];
    remember(theme);
    this.apply(theme);
    return theme;
  }

  private apply(theme: Theme): void {
    const dark = theme === 'auto' ? this.systemDark.matches : theme === 'dark';
    document.documentElement.dataset['theme'] = dark ? 'dark' : 'light';
    this.changed();
  }
}

/** A colour of colours.css by its name, in the current theme. */
export function colour(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

let unkept: string | null = null;

// Browsers without storage (private windows) keep the choice only until the page is closed.
function remembered(): string | null {
  try {
    return localStorage.getItem(KEY) ?? unkept;
  } catch {
    return unkept;
  }
}

function remember(theme: Theme): void {
  unkept = theme;
  try {
    localStorage.setItem(KEY, theme);
  } catch {
    // See above.
  }
}
