/** Dark, light, or as the system says ("auto"); remembered by the browser. */

export const THEMES = ['auto', 'dark', 'light'] as const;
export type Theme = (typeof THEMES)[number];

const KEY = 'zephly-theme';

export class ThemeChoice {
  private readonly systemDark = matchMedia('(prefers-color-scheme: dark)');

  /** `changed` is called whenever the colours are others. */
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

/** A colour of style.css by its name, as the theme in use has it. */
export function colour(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

let unkept: string | null = null;

// A browser that keeps nothing (private windows) forgets the choice with the page, no more.
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
